# SPDX-License-Identifier: LGPL-2.1-or-later
"""The three sets of entry points of one module: each of the thirteen calls, and a page."""

import sys
from ctypes import byref, c_int

from sane_api import Backend, Sane

pages = []
for prefix in ("sane_ScanLib_", "sane_QuillonLegacy_1_0_0_", "sane_Oxle09_"):
    backend = Backend(sys.argv[1], prefix)
    with Sane(backend) as sane:
        with sane.open(sane.devices()[0]) as scanner:
            scanner.set("resolution", 75)
            scanner.set("br-y", 50)
            assert scanner.get("resolution") == 75
            lines, stride = scanner.parameters().lines, scanner.parameters().bytes_per_line
            fd = c_int()
            assert backend.sane_set_io_mode(scanner.handle, 1) == Sane.UNSUPPORTED
            assert backend.sane_get_select_fd(scanner.handle, byref(fd)) == Sane.UNSUPPORTED
            status, page = scanner.read_page()
            assert status == Sane.EOF, status
            assert len(page) == lines * stride > 0
            scanner.cancel()
            pages.append(page)
assert pages[0] == pages[1] == pages[2]
