#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""The check of the backend's page must see what it is there to see."""

import unittest

from check_backend_page import check

SOURCE = r'''
constexpr const char* kComputedKeys[] = {"LINES"};
constexpr const char* kSwitch = "OTHER_SWITCH";
bool b = isSwitchedOn("SWITCH") || getenv(kSwitch);
int a = cfg->GetIntOption("NUMBER") + storeValue("LINES");
double d = engine->SetDoubleValue("AREA", 1.0);
const char* key = isColour ? "TEXTC" : "TEXTG";
snprintf(name, "%s%d", "LIST_", 1);
describe(kOptionA, "alpha", "Alpha", "", 0, 0);
describeGroup(kOptionGroup, "Group", "");
const SANE_String_Const mode_list[] = {"Fast mode", nullptr};
SL_TRACE("[ERROR] no %s in "
         "%d files");
'''

PAGE = r'''.SH CONFIGURATION
.SS "Keys of [INTEGERS]: some"
.TP
.B NUMBER
1
.TP
.BR LIST_1 ", " LIST_2 ", ..."
.SS "Keys of [DOUBLES]"
.TP
.B AREA
.SS "Keys of [STRINGS]"
.TP
.BR TEXTC ", " TEXTG
.SS "Computed keys"
.B LINES
.SH OPTIONS
.TP
.B alpha
.B Fast mode
.SH ENVIRONMENT
.TP
.B SWITCH
.TP
.B OTHER_SWITCH
.SH TROUBLESHOOTING
.EX
[ERROR] no scanner in 3 files
.EE
'''

FEATURES = {("INTEGERS", "NUMBER"), ("INTEGERS", "LIST_"), ("STRINGS", "TEXTC")}


class CheckTest(unittest.TestCase):
    def problems(self, source=SOURCE, features=frozenset(FEATURES), page=PAGE):
        return check(source, features, page)

    def test_good(self):
        self.assertEqual(self.problems(), [])

    def test_key_missing(self):
        for key in ["TEXTG", "LIST_", "AREA"]:
            self.assertNotEqual(self.problems(page=PAGE.replace(key, "x")), [], key)
        self.assertEqual(self.problems(source=SOURCE + 'f("NEW_KEY");'),
                         ["key NEW_KEY is not in the page"])
        self.assertEqual(self.problems(page=PAGE.replace("LINES", "")),
                         ["computed key LINES is not in the page"])

    def test_key_that_is_gone(self):
        self.assertEqual(self.problems(page=PAGE.replace(", \" TEXTG", ", \" TEXTG \", \" GONE")),
                         ["key GONE is in the page, but not in the source"])

    def test_key_in_the_wrong_section(self):
        self.assertEqual(self.problems(page=PAGE.replace("[DOUBLES]", "[STRINGS]")),
                         ["key AREA is not under [DOUBLES]"])
        self.assertEqual(self.problems(features={("DOUBLES", "NUMBER")}),
                         ["key NUMBER is not under [DOUBLES]"])

    def test_other_words(self):
        self.assertEqual(self.problems(page=PAGE.replace(".B SWITCH", ".B S")),
                         ["variable SWITCH is not in the page"])
        self.assertEqual(self.problems(page=PAGE.replace("OTHER_SWITCH", "S")),
                         ["variable OTHER_SWITCH is not in the page"])
        self.assertEqual(self.problems(page=PAGE.replace("alpha", "beta")),
                         ["option alpha is not in the page"])
        self.assertEqual(self.problems(page=PAGE.replace("Fast", "Slow")),
                         ["value Fast mode is not in the page"])
        self.assertEqual(self.problems(page=PAGE.replace("no scanner", "a scanner")),
                         ['there is no message "[ERROR] a scanner in 3 files"'])

    def test_empty_source(self):
        self.assertEqual(self.problems(source=""), ["nothing found in the source"])


if __name__ == "__main__":
    unittest.main()
