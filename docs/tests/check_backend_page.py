#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Compares the manual page of a backend with the source: keys and their sections, variables of the
environment, options and their values, messages.

usage: check_backend_page.py <root of the source> <page>
"""

import re
import sys
from pathlib import Path

import roff
import sources

SECTIONS = ("INTEGERS", "DOUBLES", "STRINGS")


def page_keys(page):
    """The keys that the page explains, as (section, key)."""
    found = set()
    for title, lines in roff.subsections(page):
        for section in SECTIONS:
            if f"[{section}]" in title:
                found.update((section, tag) for tag in roff.tags(lines) if sources.KEY.fullmatch(tag))
    return found


def part(page, title):
    """The lines of the section or subsection."""
    return [line for name, lines in roff.subsections(page) if name == title for line in lines]


def is_explained(key, explained):
    return any(known == key or (key.endswith("_") and known.startswith(key)) for known in explained)


def check_keys(source, features, page):
    explained = page_keys(page)
    names = {key for _, key in explained}
    computed = set(re.findall(r"[A-Z_]{3,}", " ".join(part(page, "Computed keys"))))
    needed = sources.keys(source) - sources.computed_keys(source)
    problems = [f"key {key} is not in the page" for key in sorted(needed)
                if not is_explained(key, names)]
    problems += [f"computed key {key} is not in the page"
                 for key in sorted(sources.computed_keys(source) - computed)]
    problems += [f"key {key} is in the page, but not in the source" for key in sorted(names)
                 if key not in needed and not any(known.endswith("_") and key.startswith(known)
                                                  for known in needed)]
    typed = sources.typed_keys(source) | features
    problems += [f"key {key} is not under [{section}]" for section, key in sorted(typed)
                 if key not in sources.computed_keys(source)
                 and not is_explained(key, {name for place, name in explained if place == section})]
    return problems


def check_words(kind, needed, text):
    return [f"{kind} {word} is not in the page" for word in sorted(needed) if word not in text]


def check(source, features, page):
    """The problems, each as a line of text."""
    if not sources.keys(source) or not sources.options(source):
        return ["nothing found in the source"]
    problems = check_keys(source, features, page)
    variables = roff.tags(part(page, "ENVIRONMENT"))
    problems += check_words("variable", sources.variables(source), variables)
    problems += check_words("option", sources.options(source), roff.tags(part(page, "OPTIONS")))
    values = "\n".join(roff.plain(line) for line in part(page, "OPTIONS"))
    problems += check_words("value", sources.option_values(source), values)
    known = sources.messages(source)
    quoted = [roff.plain(line) for line in page.splitlines() if re.match(r"\[(ERROR|WARN)\]", line)]
    problems += [f"there is no message \"{text}\"" for text in quoted
                 if not any(message.fullmatch(text) for message in known)]
    return problems


def main(root, page):
    root = Path(root)
    source = sources.read([*root.glob("src/*.cpp"), *root.glob("src/*.h")])
    features = set()
    for path in root.glob("config/models/*.ini"):
        features |= sources.entries(path.read_text(encoding="utf-8"))
    problems = check(source, features, Path(page).read_text(encoding="utf-8"))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
