# SPDX-License-Identifier: LGPL-2.1-or-later
"""Front ends that do what they should not: unknown names, the same scanner twice, lists at any time,
a session that ends with an open handle. Whoever did everything right suffers from none of it.

Argument: the status with which the same scanner is opened a second time.
"""

import sys

from control import tell_simulation
from sane_api import Sane

BACKEND = "QuillonLegacy_1_0_0"
UNKNOWN = [f"{BACKEND}:libusb/001/099", f"{BACKEND}:libnet/0200000000FF", f"{BACKEND}:/",
           f"{BACKEND}:%s%n", f"{BACKEND}:{'x' * 5000}", f"{BACKEND}:libusb//",
           "no-backend:libusb/001/002"]


def open_small(sane, name):
    scanner = sane.open(name)
    scanner.set("resolution", 75)
    scanner.set("br-y", 60)
    return scanner


def page_of(sane, name):
    with open_small(sane, name) as scanner:
        status, page = scanner.read_page()
        assert status == Sane.EOF, status
        return page


def check_unknown_names(sane, name, page):
    for unknown in UNKNOWN:
        status, scanner = sane.try_open(unknown)
        assert status != Sane.GOOD and scanner is None, unknown
    assert page_of(sane, name) == page


def check_same_scanner_twice(sane, name, page, status_of_open):
    with open_small(sane, name) as first:
        status, second = sane.try_open(name)
        assert status == status_of_open, status
        assert first.start() == Sane.GOOD
        status, begin = first.read(5000)
        assert status == Sane.GOOD
        if second:
            assert second.start() == Sane.IO_ERROR
            assert second.read(100)[0] == Sane.IO_ERROR
            second.cancel()
            second.close()
        assert first.read_to_end() == (Sane.EOF, page[len(begin):])
        first.cancel()
        # The cancel has let go of it.
        with open_small(sane, name) as third:
            assert third.read_page() == (Sane.EOF, page)
    assert page_of(sane, name) == page


def check_lists(sane, name, page):
    assert sane.devices() == sane.devices() == [name]
    with open_small(sane, name) as scanner:
        assert sane.devices() == [name]
        assert scanner.start() == Sane.GOOD
        status, begin = scanner.read(5000)
        assert sane.devices() == sane.devices() == [name]
        assert scanner.read_to_end() == (Sane.EOF, page[len(begin):])


def check_unplugged(sane, name, page):
    """Returns the name under which the scanner comes back."""
    with open_small(sane, name) as scanner:
        tell_simulation("device 1: unplug")
        assert sane.devices() == sane.devices() == []
        assert scanner.start() == Sane.IO_ERROR
        assert scanner.read(100)[0] == Sane.IO_ERROR
        assert scanner.parameters().lines == 177
        assert scanner.get("resolution") == 75
        scanner.cancel()
    assert sane.try_open(name)[1] is None
    tell_simulation("device 1: plug")
    [name] = sane.devices()
    assert page_of(sane, name) == page
    return name


def check_exit_with_an_open_handle(sane, name, status_of_open):
    """The scanner is not free again before the end of the process."""
    scanner = open_small(sane, name)
    assert scanner.start() == Sane.GOOD
    assert scanner.read(5000)[0] == Sane.GOOD
    for _ in range(2):
        sane.exit()
        sane.init()
        assert sane.devices() == [name]
        status, scanner = sane.try_open(name)
        assert status == status_of_open, status
        if scanner:
            assert scanner.start() == Sane.IO_ERROR
            scanner.close()
    sane.exit()


status_of_open = int(sys.argv[1])
sane = Sane()
sane.init()
[name] = sane.devices()
page = page_of(sane, name)
assert len(page) > 100000
check_unknown_names(sane, name, page)
check_same_scanner_twice(sane, name, page, status_of_open)
check_lists(sane, name, page)
name = check_unplugged(sane, name, page)
check_exit_with_an_open_handle(sane, name, status_of_open)
