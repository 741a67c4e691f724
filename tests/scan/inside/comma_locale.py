# SPDX-License-Identifier: LGPL-2.1-or-later
"""A front end in a locale whose decimal point is a comma reads the feature file all the same.

Usage: comma_locale.py LOCALE
"""

import locale
import sys

from sane_api import Sane

locale.setlocale(locale.LC_ALL, sys.argv[1])
assert locale.localeconv()["decimal_point"] == ","

with Sane() as sane, sane.open(sane.devices()[0]) as scanner:
    limits = scanner.descriptor("br-x").constraint.range.contents
    assert list(limits)[:2] == [0, int(215.9 * 65536)], list(limits)
    assert abs(scanner.get("br-y") - 279.4) < 1e-4, scanner.get("br-y")
