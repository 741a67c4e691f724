# SPDX-License-Identifier: LGPL-2.1-or-later
"""Reads a manual page as its source is written."""

import re


def plain(line):
    """A line without macro and escapes."""
    line = re.sub(r"^\.(?:B|I|BR|BI|IR|IB|RB|RI|SS|SH) ", "", line)
    line = re.sub(r"\\f[BIRP]", "", line)
    for escape, text in (("\\(dq", '"'), ("\\(aq", "'"), ("\\-", "-"), ("\\&", ""), ("\\e", "\\")):
        line = line.replace(escape, text)
    return line


def subsections(text):
    """Every section and subsection as (title, lines)."""
    found = [("", [])]
    for line in text.splitlines():
        heading = re.match(r'\.S[HS] "?([^"]*)"?$', line)
        if heading:
            found.append((plain(heading.group(1)), []))
        else:
            found[-1][1].append(line)
    return found


def tags(lines):
    """What stands in the tags of the paragraphs, word by word."""
    found = set()
    for before, line in zip(lines, lines[1:]):
        if before == ".TP":
            found.update(re.findall(r"[\w-]+", plain(line)))
    return found
