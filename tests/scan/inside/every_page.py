# SPDX-License-Identifier: LGPL-2.1-or-later
"""Scans from every source of every device in every mode, into N-SOURCE-MODE.raw, where N is the
number of the device in the order of the simulation. Devices have to be all on USB or all on the
network. Asks for every device by the name in the list.

Arguments: how many devices there are, then N=SOURCE for those of which only that source is meant.
"""

import sys

from sane_api import Sane

FEEDER = "Automatic Document Feeder"


def strings_of(scanner, option):
    if option not in scanner.options:
        return []
    constraint = scanner.descriptor(option).constraint.strings
    found = []
    while constraint[len(found)]:
        found.append(constraint[len(found)].decode())
    return found


def number_of(name):
    """From libusb/001/NNN, where numbers begin with 2, or from libnet/MAC."""
    last = name.rpartition("/")[2]
    return int(last) - 1 if "libusb" in name else int(last[-4:], 16)


def scan(scanner, number, source, mode):
    scanner.set("resolution", 75)
    if source:
        scanner.set("source", source)
    scanner.set("mode", mode)
    scanner.set("tl-x", 5)
    scanner.set("br-x", 90)
    scanner.set("br-y", 70)
    # Odd sizes, so that ends of reads and of frames hardly ever meet.
    status, page = scanner.read_page(10007)
    scanner.cancel()
    assert status == Sane.EOF, (number, source, mode, status)
    parts = [str(number), source or "only", mode]
    with open("-".join(part.split(" ")[0] for part in parts) + ".raw", "wb") as file:
        file.write(page)


only = dict(argument.split("=") for argument in sys.argv[2:])

with Sane() as sane:
    names = sane.devices()
    assert len(names) == int(sys.argv[1]), names
    for name in names:
        with sane.open(name) as scanner:
            number = number_of(name)
            sources = strings_of(scanner, "source") or [None]
            for source in [only[str(number)]] if str(number) in only else sources:
                for mode in strings_of(scanner, "mode"):
                    scan(scanner, number, source, mode)
