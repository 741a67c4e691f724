# SPDX-License-Identifier: LGPL-2.1-or-later
"""By no device's name the first scanner of the list is opened: before a list was made, behind it, and
when scanners have come and gone."""

from control import tell_simulation
from sane_api import Sane

BACKEND = "QuillonLegacy_1_0_0:"


def source_of_first(sane):
    """Its sources tell which it is."""
    status, scanner = sane.try_open(BACKEND)
    if status != Sane.GOOD:
        return status
    with scanner:
        strings = scanner.descriptor("source").constraint.strings
        return "combo" if strings[1] else "flatbed"


with Sane() as sane:
    assert source_of_first(sane) == "combo"
    assert len(sane.devices()) == 2
    assert source_of_first(sane) == "combo"
    tell_simulation("device 1: unplug")
    assert source_of_first(sane) == "flatbed"
    tell_simulation("device 2: unplug")
    assert source_of_first(sane) == Sane.INVAL
    assert sane.devices() == []
    assert source_of_first(sane) == Sane.INVAL
    tell_simulation("device 1: plug")
    assert source_of_first(sane) == "combo"
