#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Compares the tables of the protocol's page with the numbers in the source.

usage: check_protocol.py <root of the source>
"""

import re
import sys
from pathlib import Path

VERSIONS = ("326", "401", "402")


def rows(page, heading):
    """The rows of the table whose first cell is the heading, as lists of cells."""
    found, inside = [], False
    for line in page.splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if not line.startswith("|"):
            inside = False
        elif cells[0] == heading:
            inside = True
        elif inside and not set(line) <= set("|-: "):
            found.append(cells)
    return found


def numbers(text):
    return [int(number) for number in re.findall(r"\d+", text)]


def commands(source):
    """The eight bytes of each command, in the order of their numbers."""
    found = re.search(r"kHeaders\[\]\[kHeaderSize\] = \{(.*?)\n\};", source, re.DOTALL)
    return [[int(byte, 16) for byte in re.findall(r"0x([0-9A-F]{2})", row)]
            for row in re.findall(r"\{([^{}]*)\},", found.group(1))]


def check_commands(page, source):
    """The lengths that the long commands have for byte 4 are another statement."""
    written = {int(number): [0x18 if byte == "nn" else int(byte, 16)
                             for byte in code.strip("`").split()]
               for number, _, code, _ in rows(page, "Number")}
    needed = dict(enumerate(commands(source["Cmd326.cpp"])))
    needed.pop(7)  # the header of image blocks
    return [f"command {number}: {written.get(number)} and {needed.get(number)}"
            for number in sorted(written.keys() | needed.keys())
            if written.get(number) != needed.get(number)]


def member(source, name):
    return int(re.search(rf"\b{name} = (\d+);", source).group(1))


def check_versions(page, source):
    problems = []
    text = " ".join(page.split())
    each = ", ".join(rf"(\d+) in (?:version )?{version}" for version in VERSIONS)
    written = re.search(rf"byte 4 \(nn\) is their length: {each}\.", text)
    lengths = [member(source[f"Cmd{version}.cpp"], "kCommandLength") - 8 for version in VERSIONS]
    if written is None or [int(length) for length in written.groups()] != lengths:
        problems.append(f"lengths of the parameters are {lengths}")
    framing = {cells[0]: numbers(" ".join(cells[1:])) for cells in rows(page, "Version")}
    for version in VERSIONS:
        unit = source[f"Cmd{version}.cpp"]
        needed = [member(unit, "iStrip"), member(unit, "iStripMin")]
        if framing.get(version) != needed:
            problems.append(f"blocks of {version}: {framing.get(version)} and {needed}")
    return problems


def check_records(page, source):
    enum = re.search(r"enum RecordResponse \{(.*?)\}", source["ICommunication.h"], re.DOTALL)
    needed = sorted(numbers(" ".join(re.findall(r"= (\d+)", enum.group(1)))))
    written = sorted(number for cells in rows(page, "Byte 8") for number in numbers(cells[0]))
    return [] if written == needed else [f"records: {written} and {needed}"]


def check_statuses(page, source):
    body = re.search(r"ScanLib::MapToSLSTATUS.*?\n\}", source["ScanLib.cpp"], re.DOTALL).group()
    needed, waiting = {}, []
    for line in body.splitlines():
        case = re.search(r"case (\d+):", line)
        code = re.search(r"code = SANE_STATUS_(\w+)", line)
        if case:
            waiting.append(int(case.group(1)))
        elif code and waiting:
            for status in waiting:
                needed.setdefault(status, set()).add(code.group(1))
        elif "break;" in line:
            waiting = []
    written = {number: set(re.findall(r"`(\w+)`", cells[2]))
               for cells in rows(page, "Status") for number in numbers(cells[0])}
    written.pop(128, None)  # that of success, which needs no case
    return [] if written == needed else [f"statuses: {written} and {needed}"]


def check_constants(page, source):
    """Numbers that stand in sentences."""
    text = " ".join(page.split())
    constants = [("NetComm.cpp", "kPort", "TCP port {}"), ("Discovery.cpp", "kPort", "UDP port {}"),
                 ("NetComm.h", "kImageRoom", "frames of up to {} bytes"),
                 ("NetComm.h", "kReplyRoom", "{} for replies"),
                 ("Discovery.cpp", "kLongestAnswer", "to {} bytes with a TXT"),
                 ("DiscoveryReply.cpp", "kSmallestPacket", "of {} to"),
                 ("ScanRecord.cpp", "kPageMarkerSize", "page marker {} bytes"),
                 ("CSources.h", "kHeaderSize", "a source takes {} bytes"),
                 ("CScanRes.h", "kSize", "and {} for each of its resolutions"),
                 ("DiscoveryReply.cpp", "kTypeText", "(type {})")]
    return [f"{name} of {unit} is {member(source[unit], name)}" for unit, name, words in constants
            if words.format(member(source[unit], name)) not in text]


def check_keys(page, source):
    needed = set(re.findall(r'key == "(\w+)"', source["DiscoveryReply.cpp"]))
    written = {cells[0].strip("`") for cells in rows(page, "Key")}
    return [] if written == needed else [f"keys of an answer: {written} and {needed}"]


CHECKS = (check_commands, check_versions, check_records, check_statuses, check_constants, check_keys)


def main(root):
    root = Path(root)
    page = (root / "docs/protocol.md").read_text(encoding="utf-8")
    source = {path.name: path.read_text(encoding="utf-8") for path in (root / "src").glob("*.*")}
    problems = [problem for check in CHECKS for problem in check(page, source)]
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
