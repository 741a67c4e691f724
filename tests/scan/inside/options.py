# SPDX-License-Identifier: LGPL-2.1-or-later
"""Every option: description, get, set, limits and info flags. Argument: has-feeder (0 or 1)."""

import ctypes
import sys

import sane_api
from sane_api import INEXACT, RELOAD_OPTIONS, RELOAD_PARAMS, Sane

has_feeder = sys.argv[1] == "1"

with Sane() as sane, sane.open(sane.devices()[0]) as scanner:
    assert list(scanner.options) == ["resolution", "mode", "source", "preview", "tl-x", "tl-y",
                                     "br-x", "br-y", "media"], scanner.options

    count = ctypes.c_int()
    assert scanner.control(0, sane_api.GET, ctypes.byref(count)) == (Sane.GOOD, 0)
    assert count.value == 12
    assert not scanner.library.sane_get_option_descriptor(scanner.handle, 12)
    assert not scanner.library.sane_get_option_descriptor(scanner.handle, -1)

    words = scanner.descriptor("resolution").constraint.words
    resolutions = [words[i] for i in range(1, words[0] + 1)]
    assert resolutions == [600, 300, 150, 75], resolutions
    for dpi in resolutions:
        assert scanner.set("resolution", dpi) == RELOAD_PARAMS
        assert scanner.get("resolution") == dpi
        assert scanner.parameters().pixels_per_line == int(dpi * (215.9 / 25.4))
    assert scanner.try_set("resolution", 100)[0] == Sane.INVAL
    assert scanner.get("resolution") == 75

    for mode, format in [("8-bit Grayscale", 0), ("24-bit Color", 1)]:
        assert scanner.set("mode", mode) == RELOAD_PARAMS
        assert scanner.get("mode") == mode
        parameters = scanner.parameters()
        assert (parameters.format, parameters.depth, parameters.last_frame) == (format, 8, 1)
        assert parameters.bytes_per_line == parameters.pixels_per_line * (3 if format else 1)
    for unknown in ["Color", "24-bit color", ""]:
        assert scanner.try_set("mode", unknown)[0] == Sane.INVAL

    feeder = "Automatic Document Feeder"
    assert scanner.set("source", "Flatbed") == RELOAD_PARAMS
    assert scanner.try_set("source", feeder)[0] == (Sane.GOOD if has_feeder else Sane.INVAL)
    assert scanner.get("source") == (feeder if has_feeder else "Flatbed")

    for name, limit in [("tl-x", 215.9), ("tl-y", 297.0), ("br-x", 215.9), ("br-y", 297.0)]:
        limits = scanner.descriptor(name).constraint.range.contents
        assert list(limits) == [0, int(limit * 65536), 0], list(limits)
        assert scanner.set(name, 30.5) == RELOAD_PARAMS
        assert scanner.get(name) == 30.5
        assert scanner.set(name, 1000) == RELOAD_PARAMS | INEXACT
        assert abs(scanner.get(name) - limit) < 1e-4
        assert scanner.set(name, -1) == RELOAD_PARAMS | INEXACT
        assert scanner.get(name) == 0

    assert scanner.set("media", "A4 (210 x 297 mm)") == RELOAD_PARAMS | RELOAD_OPTIONS
    assert [scanner.get(name) for name in ("tl-x", "tl-y", "br-x", "br-y")] == [0, 0, 210, 297]
    assert scanner.get("media") == "A4 (210 x 297 mm)"
    names = scanner.descriptor("media").constraint.strings
    media = []
    while names[len(media)]:
        media.append(names[len(media)].decode())
    assert len(media) == 34
    for name in media:
        scanner.set("media", name)
        assert scanner.get("media") == name and scanner.get("br-y") > 100

    scanner.set("resolution", 300)
    assert scanner.set("preview", 1) == RELOAD_PARAMS
    assert (scanner.get("preview"), scanner.get("resolution")) == (1, 75)
    assert scanner.parameters().pixels_per_line == int(75 * (scanner.get("br-x") / 25.4))
    assert scanner.get("resolution") == 300
    assert scanner.set("preview", 0) == RELOAD_PARAMS
    assert scanner.get("preview") == 0

    for number in (1, 6, 12, -1):
        assert scanner.control(number, sane_api.GET, ctypes.byref(count))[0] == Sane.INVAL
    for number in scanner.options.values():
        assert scanner.control(number, sane_api.SET, None)[0] == Sane.INVAL
        assert scanner.control(number, sane_api.AUTO, ctypes.byref(count))[0] == Sane.INVAL
