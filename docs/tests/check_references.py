#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Checks that what the pages point to is there: files, headings, and names of the source.

usage: check_references.py <root of the source>
"""

import re
import sys
from pathlib import Path

FOLDERS = ("bench", "cmake", "config", "docs", "scripts", "simulator", "src", "tests", "tools")
PAGES = ("README.md", "CONTRIBUTING.md", "CHANGELOG.md", "simulator/README.md", "docs/*.md")
# Names of the source are looked for in these; other pages have words that look like names.
PAGES_WITH_NAMES = ("architecture.md", "protocol.md", "CONTRIBUTING.md")
# Made by the build, below its folder.
BUILT = {"tests/scan/front_end"}
SUFFIXES = (".cpp", ".h", ".c", ".py")

LINK = re.compile(r"\]\(([^)\s]+)\)")
CODE = re.compile(r"`([^`\n]+)`")
PATH = re.compile(r"(?:%s)/[\w./-]*" % "|".join(FOLDERS))
NAME = re.compile(r"(?:[a-z]\w*::)?[A-Za-z]\w*(?:::~?\w+)*")


def anchors(text):
    """The headings as browsers of repositories name them."""
    headings = re.findall(r"^#+ (.*)$", text, re.MULTILINE)
    return {re.sub(r"[^\w -]", "", heading).strip().lower().replace(" ", "-")
            for heading in headings}


def check_link(page, target):
    path, _, anchor = target.partition("#")
    file = (page.parent / path) if path else page
    if re.match(r"[a-z]+://", target):
        return True
    return file.exists() and (not anchor or anchor in anchors(file.read_text(encoding="utf-8")))


def is_name(text):
    """Whether it can only be a name of the source: with capitals in it, or of a class."""
    return NAME.fullmatch(text) and ("::" in text or re.search(r"[a-z][A-Z]", text))


def check_page(root, page, words):
    text = page.read_text(encoding="utf-8")
    problems = [f"no {target}" for target in LINK.findall(text) if not check_link(page, target)]
    for code in CODE.findall(text):
        if PATH.fullmatch(code) and not re.search(r"NAME|NNN|BACKEND|Name", code):
            if code not in BUILT and not (root / code).exists():
                problems.append(f"no {code}")
        elif page.name in PAGES_WITH_NAMES and is_name(code):
            problems += [f"nothing is named {part} in the source ({code})"
                         for part in re.findall(r"\w+", code) if part not in words]
    return [f"{page.relative_to(root)}: {problem}" for problem in problems]


def source_words(root):
    words = set()
    for folder in ("bench", "simulator", "src", "tests", "tools"):
        for path in (root / folder).rglob("*"):
            if path.suffix in SUFFIXES:
                words.update(re.findall(r"\w+", path.read_text(encoding="utf-8")))
                words.add(path.stem)
    return words


def check(root):
    """The problems, each as a line of text."""
    pages = sorted(page for pattern in PAGES for page in root.glob(pattern))
    words = source_words(root)
    if not pages or not words:
        return ["nothing to look at"]
    return [problem for page in pages for problem in check_page(root, page, words)]


def main(root):
    problems = check(Path(root).resolve())
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
