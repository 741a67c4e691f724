#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""The check of references must see what it is there to see."""

import tempfile
import unittest
from pathlib import Path

from check_references import check

PAGE = """# Title
See [other](../README.md#a-heading), [here](#title), [there](https://example.org/x), `src/Some.cpp`,
`src/NAME.cpp`, `Some::start`, `someThing`, `plain`, `lower_case`.
"""


class CheckTest(unittest.TestCase):
    def problems(self, page=PAGE, readme="# A heading\n", name="architecture.md"):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            for path, text in {f"docs/{name}": page, "README.md": readme,
                               "src/Some.cpp": "void Some::start() { someThing(); }\n"}.items():
                (root / path).parent.mkdir(exist_ok=True)
                (root / path).write_text(text, encoding="utf-8")
            return check(root.resolve())

    def test_good(self):
        self.assertEqual(self.problems(), [])

    def test_file_that_is_gone(self):
        self.assertEqual(self.problems(PAGE.replace("src/Some.cpp", "src/Other.cpp")),
                         ["docs/architecture.md: no src/Other.cpp"])
        self.assertEqual(self.problems(PAGE.replace("../README.md#a-heading", "none.md")),
                         ["docs/architecture.md: no none.md"])

    def test_heading_that_is_gone(self):
        self.assertEqual(self.problems(readme="# Another\n"),
                         ["docs/architecture.md: no ../README.md#a-heading"])
        self.assertEqual(self.problems(PAGE.replace("# Title", "# Other")),
                         ["docs/architecture.md: no #title"])

    def test_name_that_is_gone(self):
        page = PAGE.replace("Some::start", "Some::stop").replace("someThing", "otherThing")
        self.assertEqual(self.problems(page), [
            "docs/architecture.md: nothing is named stop in the source (Some::stop)",
            "docs/architecture.md: nothing is named otherThing in the source (otherThing)"])
        self.assertEqual(self.problems(page, name="performance.md"), [])


if __name__ == "__main__":
    unittest.main()
