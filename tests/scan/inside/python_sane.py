# SPDX-License-Identifier: LGPL-2.1-or-later
"""python3-sane: list, look at options, set some, scan twice, start anew."""

import sane

for round in range(2):
    sane.init()
    devices = sane.get_devices()
    assert len(devices) == 1 and devices[0][3] == "Scanner", devices
    scanner = sane.open(devices[0][0])
    assert {"resolution", "mode", "source", "preview", "tl_x", "tl_y", "br_x", "br_y",
            "media"} <= set(scanner.opt), scanner.opt.keys()
    scanner.resolution = 75
    scanner.mode = "24-bit Color"
    scanner.br_x, scanner.br_y = 80, 60
    pages = []
    for page in range(2):
        scanner.start()
        pages.append(scanner.snap())
    assert pages[0].size == (236, 177) and pages[0].mode == "RGB", pages[0]
    assert pages[0].tobytes() == pages[1].tobytes()
    assert len(set(pages[0].getdata())) > 50
    scanner.mode = "8-bit Grayscale"
    grey = scanner.scan()
    assert grey.size == (236, 177) and grey.mode == "L", grey
    scanner.close()
    sane.exit()
