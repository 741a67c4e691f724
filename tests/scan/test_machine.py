# SPDX-License-Identifier: LGPL-2.1-or-later
"""Scans on a machine that refuses things: memory and descriptors at every place, /tmp, the log."""

import os
import re
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import simulation

PROBE = Path(os.environ["SCAN_PROBES"]) / "machine_probe"
USB = "libusb/001/002"
NET = "libnet/020000000001"

KINDS = [
    (["flatbed-326,block-size=1000"], USB),
    (["adf-402,block-size=1000"], USB),
    (["wicket-402,vendor-id=quillon,block-size=1000"], USB),
    (["combo-401,stream=interleaved,block-size=1000"], USB),
    ([["--net", "adf-402,block-size=1000"]], NET),
    ([["--net", "wicket-402,vendor-id=quillon,block-size=1000"]], NET),
]
LOCKED = "the host left the scanner locked"
# Where the unlock itself gets no memory for its bytes.
MOST_LOCKED = 2

# What is done to the private /tmp before a scan. Nothing of it may be followed, waited for or harmed.
PATHS = ["/tmp/scan.dump", "/tmp/scan_problem.dump"]
PLANTED = {
    "full": "mount -o remount,nr_inodes=100 /tmp; i=0; "
            "while touch /tmp/more$i; do i=$((i + 1)); test $i -lt 200 || exit 1; done",
    "read-only": "mount -o remount,ro /tmp && ! touch /tmp/more",
    "link": "touch target; for f in {paths}; do ln -s $PWD/target $f; done",
    "dangling link": "for f in {paths}; do ln -s $PWD/target $f; done",
    "FIFO": "mkfifo {paths}",
    "folder": "mkdir {paths}",
    "file of another owner": "for f in {paths}; do echo kept > $f; done; "
                             "chmod 600 {paths}; chown 65534 {paths}",
    "no /dev/log": "! test -e /dev/log || mount --bind /dev/null /dev/log",
}


class Machine(simulation.ScanTestCase):
    def probe(self, devices, *arguments, options=()):
        return self.simulate(devices, [str(PROBE), *map(str, arguments)], options,
                             folder=Path(tempfile.mkdtemp(dir=self.folder)))

    def refuse(self, what):
        def run(kind):
            return kind, self.probe(kind[0], what, kind[1], options=["--tolerate"])
        with ThreadPoolExecutor(2) as runs:
            for (devices, _), result in runs.map(run, KINDS):
                print(what, *devices, "\n" + result.stdout, flush=True)
                with self.subTest(what=what, devices=devices):
                    self.assertEqual(result.status, 0, result.stdout + result.stderr)
                    yield re.findall("COMPLAINT: [^:]*: (.*)", result.stderr)

    def test_an_allocation_fails(self):
        for complaints in self.refuse("one"):
            self.assertLessEqual(complaints.count(LOCKED), MOST_LOCKED)
            self.assertEqual(set(complaints) - {LOCKED}, set())

    def test_all_allocations_fail_from_some_time_on(self):
        for complaints in self.refuse("all"):
            self.assertEqual(set(complaints) - {LOCKED}, set())

    def test_no_memory_for_the_first_exception(self):
        host = PROBE.parent / "bare_host"
        if not host.exists():
            self.skipTest("a tree with a sanitizer or counters")
        module = Path(simulation.SCANNER_SIM).parents[1] / "lib" / "libsane-QuillonLegacy_1_0_0.so.1"
        for call in ["list", "open", "start"]:
            result = self.simulate(["adf-402"], [str(host), str(module), "QuillonLegacy_1_0_0",
                                                 USB, call], ["--tolerate"],
                                   folder=Path(tempfile.mkdtemp(dir=self.folder)))
            self.assertEqual(result.status, 0, call + result.stdout + result.stderr)

    def test_no_descriptors(self):
        for complaints in self.refuse("descriptors"):
            self.assertEqual(complaints, [])

    def test_what_is_planted_in_tmp(self):
        """With the marker of an edited size, so that both files are written."""
        for name, script in PLANTED.items():
            with self.subTest(name=name):
                folder = Path(tempfile.mkdtemp(dir=self.folder))
                script = script.format(paths=" ".join(PATHS))
                result = self.simulate(
                    ["combo-326"],
                    ["sh", "-c", f"{script} && timeout 60 env SCAN_DEVICE_WITH_EDITS=1 "
                     f"ENABLE_SL_LOG=1 {PROBE} once {USB} && ls -ln /tmp"],
                    ["--private-tmp"], folder=folder)
                self.assertEqual(result.status, 0, result.stdout + result.stderr)
                page = simulation.read_pnm(result.recorded()[0])[3]
                self.assertTrue((folder / "page.raw").read_bytes() == page)
                target = folder / "target"
                self.assertFalse(target.exists() and target.stat().st_size > 0)
                self.assertEqual(target.exists(), name == "link")
                if name == "file of another owner":
                    sizes = re.findall(r"-rw------- +1 65534 +\d+ +(\d+) .*\.dump", result.stdout)
                    self.assertEqual(sizes, ["5", "5"], result.stdout)


if __name__ == "__main__":
    simulation.main()
