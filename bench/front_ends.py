# SPDX-License-Identifier: LGPL-2.1-or-later
"""Whole processes of scanimage, inside a simulation. Prints a line "NAME VALUE" for each figure.
Arguments: folders of the stand-in's library, of the model files, of the papers, of sane_api.py."""

import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

STANDIN, MODELS, PAPERS = map(Path, sys.argv[1:4])
sys.path.insert(0, sys.argv[4])
import sane_api  # noqa: E402

DEVICE = "QuillonLegacy_1_0_0:libusb/001/002"
ROUNDS = 7
SIDE = 200  # millimetres
AREA = ["--resolution", "600", "-l", "0", "-t", "0", "-x", str(SIDE), "-y", str(SIDE)]
OURS = ["scanimage", "-d", DEVICE, "--mode", "24-bit Color", *AREA]
TEST = ["scanimage", "-d", "test:0", "--mode", "Color", "--depth", "8", *AREA]


def report(name, value):
    print(f"{name} {value:.4g}", flush=True)


def start(command, environment=None, output=subprocess.PIPE):
    return subprocess.Popen(command, stdout=output, stderr=subprocess.DEVNULL,
                            env={**os.environ, **(environment or {})})


def seconds(command, environment=None):
    """CPU time of a scan to nowhere."""
    process = start(command, environment, subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    assert status == 0, (command, status)
    return usage.ru_utime + usage.ru_stime


def read(stream, most=sys.maxsize):
    """Returns how many bytes came."""
    size = 0
    while size < most and (block := stream.read1(min(1 << 16, most - size))):
        size += len(block)
    return size


def page_bytes(command, environment=None):
    process = start(command, environment)
    size = read(process.stdout)
    assert process.wait() == 0, command
    return size


def peak_kilobytes(process):
    status = Path(f"/proc/{process.pid}/status").read_text()
    return int(status.partition("VmHWM:")[2].split()[0])


def peak_of_open(command):
    """While the process waits for somebody who has laid the first page on the glass."""
    with tempfile.TemporaryDirectory() as folder:
        process = subprocess.Popen([*command, "--batch", "--batch-prompt"], cwd=folder,
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        said = b""
        while b"RETURN" not in said:
            said += (byte := process.stderr.read(1))
            assert byte, said
        peak = peak_kilobytes(process)
        process.communicate()
    return peak


def peak_of_page(command, most):
    """While the process waits to write what comes behind so many bytes."""
    process = start(command)
    assert read(process.stdout, most) == most, command
    peak = peak_kilobytes(process)
    read(process.stdout)
    assert process.wait() == 0, command
    return peak


def measure_speed():
    standin = {"LD_PRELOAD": str(STANDIN / "standin_usb.so"),
               "STANDIN_RECORDING": str(PAPERS / "recording"),
               "STANDIN_MODEL": str(MODELS / "flatbed-326.model"),
               "STANDIN_SETTINGS": f"block-size=4087,flatbed.paper={PAPERS / 'blank.pnm'}"}
    ours, test = page_bytes(OURS, standin), page_bytes(TEST)  # ours is recorded
    ratios = [ours / seconds(OURS, standin) / (test / seconds(TEST))
              for _ in range(ROUNDS)]
    report("scanimage-to-test-backend", statistics.median(ratios))


def measure_memory():
    opened = peak_of_open(OURS)
    for name, lines in [("memory-KB-page", SIDE / 2), ("memory-KB-twice-the-page", SIDE)]:
        command = [*OURS, "-y", str(lines)]
        in_the_pipe = 1 << 18
        report(name, peak_of_page(command, page_bytes(command) - in_the_pipe) - opened)


def measure_latency():
    first_bytes, cancels = [], []
    with sane_api.Sane() as sane:
        sane.devices()
        for _ in range(ROUNDS):
            begun = time.monotonic()
            with sane.open(DEVICE) as scanner:
                scanner.set("resolution", 75)
                assert scanner.start() == sane.GOOD
                assert scanner.read(32768)[0] == sane.GOOD
                first_bytes.append(time.monotonic() - begun)
                begun = time.monotonic()
                scanner.cancel()
                cancels.append(time.monotonic() - begun)
    report("open-to-first-byte-ms", 1000 * statistics.median(first_bytes))
    report("cancel-to-return-ms", 1000 * statistics.median(cancels))


measure_speed()
measure_memory()
measure_latency()
