#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""The check of descriptions must see what it is there to see."""

import unittest

from check_description import check

DESCRIPTION = """; a comment
:backend "some"
:version "1" ; another
:manpage "sane-some"
:devicetype :scanner
:mfg "Maker"
:model "One" :interface "USB Ethernet" :usbid "0x1234" "0x000a" :status :good
:model "Two 2"
:interface "USB"
:usbid "0x1234" "0x000b"
:status :untested
:comment "new"
"""
CONFIGURATION = "# usb\nusb 0x1234 0xA /a.ini Maker_One\nusb 1234 b /a.ini Maker_Two_2\n"


class CheckTest(unittest.TestCase):
    def problems(self, *changes, configuration=CONFIGURATION):
        description = DESCRIPTION
        for old, new in changes:
            self.assertIn(old, description)
            description = description.replace(old, new)
        return check(description, configuration, "some")

    def test_good(self):
        self.assertEqual(self.problems(), [])

    def test_grammar(self):
        for change in [('"some"', "some"), (":good", ":fine"), (":scanner", ":printer"),
                       ("0x000a", "0x000A"), ("0x000a", "a"), ('"0x1234" "0x000b"', '"0x1234"'),
                       (':backend "some"', ""), (":version", ":vision"), ('"1"', '"1" "2"'),
                       ('"USB"', '"Radio"'), (':status :untested', ""), (':mfg "Maker"', ""),
                       (':devicetype :scanner', ""), ('"new"', '"new'),
                       (':status :good', ':status :good :status :good'),
                       (':usbid "0x1234" "0x000b"', "")]:
            self.assertEqual(len(self.problems(change)), 1, change)

    def test_other_backend(self):
        self.assertEqual(len(self.problems(('"some"', '"other"'))), 2)
        self.assertEqual(len(self.problems(('sane-some', 'sane-other'))), 2)

    def test_models(self):
        self.assertEqual(len(self.problems(("0x000a", "0x000c"))), 1)
        self.assertEqual(len(self.problems(("Two", "Three"))), 1)
        self.assertEqual(len(self.problems(configuration=CONFIGURATION + "usb 1 2 /a B_C\n")), 1)
        self.assertEqual(len(check(':backend "some"', "", "some")), 1)


if __name__ == "__main__":
    unittest.main()
