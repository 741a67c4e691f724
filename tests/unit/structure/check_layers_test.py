#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""The layer check must see what it is there to see."""

import tempfile
import unittest
from pathlib import Path

from check_layers import check

TABLE = """
| Other | Table |
|---|---|
| x | `Nothing` |

| Layer | Units |
|---|:--|
| base | `Low`, `sub/Leaf` |
| top | `High` |
"""


class CheckLayersTest(unittest.TestCase):
    def problems(self, table=TABLE, **files):
        contents = {"Low.h": "", "sub/Leaf.h": '#include "Low.h"\n', "High.h": "",
                    "High.cpp": '#include "High.h"\n#include "sub/Leaf.h"\n#include <map>\n'}
        contents.update({name.replace("__", "/").replace("_", "."): text
                         for name, text in files.items()})
        with tempfile.TemporaryDirectory() as folder:
            for name, text in contents.items():
                path = Path(folder, name)
                path.parent.mkdir(exist_ok=True)
                path.write_text(text, encoding="utf-8")
            return check(Path(folder).resolve(), table)

    def test_good(self):
        self.assertEqual(self.problems(), [])

    def test_include_of_a_higher_layer(self):
        self.assertEqual(self.problems(Low_cpp='  #  include "High.h"\n'),
                         ["Low.cpp (base) includes High.h (top)"])
        self.assertEqual(self.problems(sub__Leaf_h='#include "../High.h"\n'),
                         ["sub/Leaf.h (base) includes ../High.h (top)"])

    def test_unit_missing_in_the_table(self):
        self.assertEqual(self.problems(New_h=""), ["New: not in the table"])

    def test_no_table(self):
        self.assertEqual(len(self.problems(table="")), 3)

    def test_unit_that_is_gone(self):
        self.assertEqual(self.problems(table=TABLE + "| more | Gone, High |\n"),
                         ["High: twice in the table",
                          "Gone: in the table, but there is no such unit"])

    def test_unknown_header(self):
        self.assertEqual(self.problems(Low_h='#include "None.h"\n'), ["Low.h: None.h not found"])


if __name__ == "__main__":
    unittest.main()
