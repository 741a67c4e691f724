# SPDX-License-Identifier: LGPL-2.1-or-later
"""Opens devices in turn and side by side; pages read in turns do not mix."""

from sane_api import Sane

with Sane() as sane:
    names = sane.devices()
    assert len(names) == 3, names
    alone = {}
    for name in names:
        with sane.open(name) as scanner:
            scanner.set("resolution", 75)
            status, alone[name] = scanner.read_page()
            assert status == Sane.EOF
    # Only devices of one backend share the library.
    first, second = (sane.open(name) for name in names[:2])
    for scanner in (first, second):
        scanner.set("resolution", 75)
        assert scanner.start() == Sane.GOOD
    together = [bytearray(), bytearray()]
    finished = [False, False]
    while not all(finished):
        for i, scanner in enumerate((first, second)):
            if not finished[i]:
                status, block = scanner.read(10000)
                together[i] += block
                finished[i] = status == Sane.EOF
    assert bytes(together[0]) == alone[names[0]]
    assert bytes(together[1]) == alone[names[1]]
    first.close()
    second.close()
