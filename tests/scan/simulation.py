# SPDX-License-Identifier: LGPL-2.1-or-later
"""Runs front ends on simulated scanners and compares what they deliver."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

SCANNER_SIM = os.environ["SCANNER_SIM"]
# Lets malloc's figures count what is in use and nothing else.
EXACT_HEAP = "GLIBC_TUNABLES=glibc.malloc.tcache_count=0"
# Sanitized modules need their runtime in the front end, which has none of its own.
PRELOAD = os.environ.get("SCAN_PRELOAD", "")
INSIDE = Path(__file__).resolve().parent / "inside"
PYTHON = "/usr/bin/python3"
PERL = "/usr/bin/perl"
INTERPRETERS = (PYTHON, PERL)
TIMEOUT = 300
# Of a scanner that over_saned.py meets.
SANED_KEYS = "feeder.sheets=3,block-size=4000,block-delay-ms=2"


def read_pnm(path):
    """Returns (magic, width, height, samples) of a binary PNM file."""
    data = Path(path).read_bytes()
    fields, at = [], 0
    while len(fields) < 4:
        token = re.compile(rb"\s*(?:#[^\n]*\n\s*)*(\S+)").match(data, at)
        fields.append(token.group(1))
        at = token.end()
    return fields[0].decode(), int(fields[1]), int(fields[2]), data[at + 1:]


class Result:
    def __init__(self, process, folder):
        self.status = process.returncode
        self.stdout = process.stdout
        self.stderr = process.stderr
        self.folder = folder

    def pages(self, pattern="page*.pnm"):
        return sorted(self.folder.glob(pattern))

    def recorded(self, device="*"):
        return sorted((self.folder / "recorded").glob(f"dev{device}-*.pnm"))


class ScanTestCase(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="scan-test-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def simulate(self, devices, command, options=(), log=False, timeout=TIMEOUT, folder=None):
        """Runs command in the test's folder (or the one given) with the devices given as
        MODEL[,KEY=VALUE]... or as lists of arguments that start with one. They are on USB unless
        --net comes before them."""
        folder = folder or self.folder
        arguments = [SCANNER_SIM, "--record", "recorded", *options]
        for device in devices:
            words = [device] if isinstance(device, str) else list(device)
            arguments += words if words[0] == "--net" else ["--usb", *words]
        environment = ["env"]
        if PRELOAD:
            environment.append(f"LD_PRELOAD={PRELOAD}")
        if any(word in INTERPRETERS for word in command):
            # They leak at their end; leaks of the backend show in scanimage.
            environment.append("ASAN_OPTIONS=detect_leaks=0")
        (folder / "recorded").mkdir(exist_ok=True)
        process = subprocess.run(arguments + ["--"] + environment + list(command),
                                 cwd=folder, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, text=True, errors="replace",
                                 stdin=subprocess.DEVNULL, timeout=timeout)
        return Result(process, folder)

    def scan(self, device, *arguments, output="page.pnm", options=()):
        result = self.simulate([device], ["scanimage", "--format=pnm", *arguments, "-o", output],
                               options)
        self.assertEqual(result.status, 0, result.stderr)
        return result

    def run_inside(self, devices, script, *arguments, options=(), timeout=TIMEOUT):
        """Runs a script of inside/, which itself checks and fails."""
        result = self.simulate(devices, [PYTHON, str(INSIDE / script), *arguments], options,
                               timeout=timeout)
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
        return result

    def run_front_end(self, devices, *arguments, environment=(), options=(), folder=None):
        """Runs a command of front_end, which itself checks and fails."""
        command = ["env", EXACT_HEAP, *environment, os.environ["FRONT_END"], *arguments]
        result = self.simulate(devices, command, options, folder=folder)
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
        return result

    def check_saned(self, devices, name):
        result = self.simulate(devices, [PYTHON, str(INSIDE / "over_saned.py"), name],
                               folder=self.subfolder("saned"))
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
        pages = result.recorded()
        # But for those of the self test and of the interrupted scan.
        self.assert_same_pages(result.pages(), pages[1:4] + pages[5:])

    def subfolder(self, name):
        folder = self.folder / "".join(c if c.isalnum() else "-" for c in name)
        folder.mkdir()
        return folder

    def assert_same_pages(self, delivered, played):
        self.assertEqual(len(delivered), len(played))
        self.assertGreater(len(played), 0)
        for mine, theirs in zip(delivered, played):
            got, wanted = read_pnm(mine), read_pnm(theirs)
            self.assertEqual(got[:3], wanted[:3])
            self.assertTrue(got[3] == wanted[3], f"{mine} differs from {theirs}")

    def assert_page(self, result):
        self.assert_same_pages(result.pages(), result.recorded())


class SideBySide(unittest.TestSuite):
    """The tests of a class wait nearly all the time, and each has its own processes and folder. The
    classes come one after the other."""

    def run(self, result, debug=False):
        for tests in map(list, self):
            with ThreadPoolExecutor(max(len(tests), 1)) as runs:
                list(runs.map(lambda test: test(result), tests))
        return result


def side_by_side(_loader, tests, _pattern):
    """For load_tests of a suite."""
    return SideBySide(tests)


main = unittest.main
