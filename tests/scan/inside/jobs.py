# SPDX-License-Identifier: LGPL-2.1-or-later
"""Orders of calls on one handle and on several: cancel, close, start again."""

import threading
import time

from sane_api import Sane


def set_up(scanner):
    scanner.set("resolution", 75)
    scanner.set("br-y", 100)


def check_order(sane, name, page):
    with sane.open(name) as scanner:
        set_up(scanner)
        # Reading before any start fails, at once.
        began = time.monotonic()
        assert scanner.read(1000)[0] not in (Sane.GOOD, Sane.EOF)
        assert time.monotonic() - began < 5
        scanner.cancel()
        # A scan, twice, with and without the final cancel.
        assert scanner.read_page() == (Sane.EOF, page)
        assert scanner.read(1000) == (Sane.EOF, b"")
        assert scanner.read_page() == (Sane.EOF, page)
        scanner.cancel()
        scanner.cancel()
        # Cancel in the middle, then a whole page.
        for size in (0, 1, 1000, 40000):
            assert scanner.start() == Sane.GOOD
            scanner.read(size)
            scanner.cancel()
            assert scanner.read(1000)[0] == Sane.CANCELLED
            assert scanner.read_page() == (Sane.EOF, page)
        # Reads of every kind of length.
        for size in (1009, 8188, 1 << 20):
            assert scanner.read_page(size) == (Sane.EOF, page)
        assert scanner.start() == Sane.GOOD
        scanner.read(5000)
    # Closed in the middle; opened again.
    with sane.open(name) as scanner:
        set_up(scanner)
        assert scanner.read_page() == (Sane.EOF, page)


def check_cancel_from_another_thread(sane, name, page):
    with sane.open(name) as scanner:
        set_up(scanner)
        for delay in (0, 0.001, 0.01, 0.05):
            assert scanner.start() == Sane.GOOD
            canceller = threading.Timer(delay, scanner.cancel)
            canceller.start()
            status, _ = scanner.read_to_end(1000)
            assert status in (Sane.CANCELLED, Sane.EOF), status
            canceller.join()
            assert scanner.read_page() == (Sane.EOF, page)


def check_sizes_of_reads(sane, name):
    """Down to a byte each, with none asked for in between."""
    with sane.open(name) as scanner:
        scanner.set("resolution", 75)
        scanner.set("mode", "8-bit Grayscale")
        scanner.set("br-x", 33.3)
        scanner.set("br-y", 27.7)
        parameters = scanner.parameters()
        status, page = scanner.read_page()
        assert status == Sane.EOF
        assert len(page) == parameters.bytes_per_line * parameters.lines
        assert (parameters.bytes_per_line, parameters.lines) == (98, 81)
        for size in (1, 97, 98, 99, 8188, 32768, 1 << 20):
            assert scanner.start() == Sane.GOOD
            assert scanner.read(0) == (Sane.GOOD, b"")
            assert scanner.read(-1) == (Sane.GOOD, b"")
            assert scanner.read_to_end(size) == (Sane.EOF, page), size


def check_list_while_scanning(sane, name, page):
    with sane.open(name) as scanner:
        set_up(scanner)
        assert scanner.start() == Sane.GOOD
        status, first = scanner.read(3000)
        assert sane.devices() == [name]
        status, rest = scanner.read_to_end()
        assert (status, first + rest) == (Sane.EOF, page)


with Sane() as sane:
    [name] = sane.devices()
    with sane.open(name) as scanner:
        set_up(scanner)
        status, page = scanner.read_page()
        assert status == Sane.EOF and len(page) > 100000
    check_order(sane, name, page)
    check_cancel_from_another_thread(sane, name, page)
    check_sizes_of_reads(sane, name)
    check_list_while_scanning(sane, name, page)
