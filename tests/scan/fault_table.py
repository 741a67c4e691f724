# SPDX-License-Identifier: LGPL-2.1-or-later
"""Every fault that is tried, and what it leads to: the rows of docs/faults.md, which test_faults.py
carries out and compares with the page.

A row is a fault as the simulation is told of it (several with ";" between them; "!" in front of
what is no fault but another control line), the calls with their statuses, what is delivered of the
last page, and the seconds after which each call has returned. {} stands for each of the values.

Calls: open, start, list (the number of devices found), part (one read of 1000 bytes), read (up to
the end), cancel. "start!2" is a start that gives 2 because a cancel comes from another thread
after half a second; [...] is a control line in between.

Delivered: "page" (whole and right), "blocks N" and "bytes N" (so many from the beginning, not more),
"beginning" (of the page, however much), "sent" (all that the device sent, not more), "lines" (all
whole lines that it sent, and what there is of another one), "nothing", "other" (pixels that are
not those of the page; a note says why).
"""

from typing import NamedTuple

OK = "open=0 start=0 read=5"
FAILED_START = "open=0 start=9"
FAILED_READ = "open=0 start=0 read=9"
FEEDER = "Automatic Document Feeder"
# 88 x 88 pixels in colour: 23232 bytes in 23 blocks.
SMALL = {"resolution": 75, "br-x": 30, "br-y": 30}
BLOCK = 1024

QUICK = 1  # what is answered or refused at once; the rest waits for the device
RETRIES = 10  # thirty thousand reads for a reply, each refused at once: as fast as the machine is
TRANSFER = 31  # a transfer on USB
REPLY = 121  # a reply on USB
VANISHED = 62  # on the network
TICKLE = 46


class Row(NamedTuple):
    fault: str
    calls: str
    delivered: str
    limit: int = QUICK
    values: tuple = (0,)
    recovery: str = ""
    note: str = ""


class Group(NamedTuple):
    name: str
    intro: str
    device: str
    rows: list
    options: dict = SMALL
    sheets: int = 0
    speed: int = 1  # of the clock
    simulation: tuple = ()  # options of the simulation

    @property
    def is_networked(self):
        return self.device.startswith("--net ")


def both(*parts):
    """Numbers, from ranges and from numbers."""
    numbers = []
    for part in parts:
        numbers += [part] if isinstance(part, int) else part
    return tuple(numbers)


IMPLICIT_CLAIM = "the kernel claims the interface with the first transfer"
REOPENED = "the start opens the device once more"
FROM_FILE = "the model's feature file has what the device does not tell"
UNCHECKED = "image data has no checksum, and anything that is not a record is image data"
NOT_EXAMINED = "this reply's status is not looked at"
TOO_FEW = "a scanner without resolutions cannot be used"
NOTICED_AT_EXIT = "the page was over"
SHORT_WRITE = "how much of a command was taken is not looked at; its reply never comes"
AFTER_FLUSH = "a read after a cancel gives the status that ended the flushing"
SHORTENED = "the device itself ends the page"
LINES_MORE = "everything that the device sends for the page goes out"

OPENING = Group(
    "USB: finding, opening and closing",
    "A flatbed of protocol 326. `open N` counts the openings of the device file, which each search "
    "makes, too: 1 is the search in `sane_open`, 2 the opening itself.",
    "flatbed-326", [
        Row("open 1: refuse 13", OK, "page"),
        Row("open always: refuse 13", "list=0 open=1", "nothing",
            note="what cannot be opened is not found"),
        Row("open always: refuse 5", "list=0 open=1", "nothing"),
        Row("open always: read-only", "list=1 open=0 start=9", "nothing",
            note="no permission to write"),
        Row("open 1: unplug", "open=1", "nothing"),
        Row("open 2: unplug", FAILED_START, "nothing"),
        Row("open 2: replug", FAILED_START, "nothing", note="the device has another file now"),
        Row("open 3: replug", FAILED_START, "nothing"),
        Row("string: stall", "list=1 open=0 start=0 read=5", "page"),
        Row("string: timeout", "list=1 open=0 start=0 read=5", "page"),
        Row("string: unplug", "list=1 open=1", "nothing"),
        Row("string: replug", "list=1 " + OK, "page"),
        Row("set-configuration: refuse 1", OK, "page", note=REOPENED),
        Row("set-configuration: refuse {}", OK, "page", values=(5, 16, 110)),
        Row("set-configuration always: refuse 1", FAILED_START, "nothing"),
        Row("set-configuration: unplug", FAILED_START, "nothing"),
        Row("set-configuration: replug", FAILED_START, "nothing"),
        Row("claim: busy", OK, "page", note="the kernel driver is detached"),
        Row("claim: busy; claim 2: busy", OK, "page",
            note="busy again after the detach; " + REOPENED),
        Row("claim always: busy", FAILED_START, "nothing"),
        Row("claim: held", OK, "page", note=IMPLICIT_CLAIM),
        Row("claim always: held", FAILED_START, "nothing", note="another program has the device"),
        Row("claim: refuse 5", OK, "page", note=IMPLICIT_CLAIM),
        Row("claim always: refuse 5", FAILED_START, "nothing"),
        Row("claim: busy; detach: refuse", FAILED_START, "nothing"),
        Row("claim: busy; detach always: refuse", FAILED_START, "nothing"),
        Row("claim: unplug", FAILED_START, "nothing"),
        Row("claim: replug", FAILED_START, "nothing"),
        Row("claim: busy; detach: unplug", FAILED_START, "nothing"),
        Row("release: refuse 5", OK, "page"),
        Row("release always: refuse 5", OK, "page"),
        Row("release: unplug", OK, "page"),
        Row("release: replug", OK, "page"),
        Row("close 3: unplug", OK, "page"),
        Row("close 3: replug", OK, "page"),
        Row("!unplug", "list=0 open=1", "nothing"),
        Row("command start: unplug", FAILED_START + " [plug] start=9", "nothing", RETRIES,
            note="a handle does not see the new file; a new open does"),
        Row("block 2: replug", FAILED_READ + " start=9", "nothing", RETRIES),
    ])

COMMANDS = Group(
    "USB: commands and their replies",
    "Flatbed and feeder of protocol 402, a page from the flatbed. Each command at which the device "
    "is unplugged or stalls, and each reply that is late, double, cut, or comes behind something "
    "else. A reply is asked for thirty thousand times; where each is refused at once, that takes "
    "what it takes the machine.",
    "adf-402", [
        *(Row(f"{event} wake: {action}", "open=9", "nothing", RETRIES)
          for event in ("command", "reply") for action in ("unplug", "replug")),
        Row("reply wake: stall", "open=9", "nothing", RETRIES),
        *(Row(f"{event} {name}: {action}", FAILED_START, "nothing", RETRIES)
          for name in ("properties", "feeder-status", "lock", "start")
          for event in ("command", "reply") for action in ("unplug", "replug")),
        *(Row(f"reply {name}: stall", FAILED_START, "nothing", RETRIES)
          for name in ("properties", "feeder-status", "lock", "start")),
        *(Row(f"{event} unlock: {action}", OK, "page", RETRIES, note=NOTICED_AT_EXIT)
          for event in ("command", "reply") for action in ("unplug", "replug")),
        Row("reply unlock: stall", OK, "page", RETRIES, note=NOTICED_AT_EXIT),
        *(Row(f"reply {name}: {action}", OK, "page")
          for name in ("wake", "properties", "feeder-status", "lock", "unlock")
          for action in ("zero", "delay 50", "stray 8", "stray 300", "precede 1", "twice")),
        *(Row(f"reply start: {action}", OK, "page")
          for action in ("zero", "delay 50", "stray 8", "precede 6")),
        Row("reply start: twice", OK, "other", note="the second one is image data: " + UNCHECKED),
        *(Row(f"reply {name}: data-length 0xFFFF", OK, "page")
          for name in ("wake", "feeder-status", "lock", "start", "unlock")),
        Row("command lock: remove-paper", OK, "page"),
    ])

SILENT_REPLIES = [
    ("wake", "open=9", "nothing"), ("properties", OK, "page"), ("feeder-status", OK, "page"),
    ("lock", FAILED_START, "nothing"), ("start", FAILED_START, "nothing"),
    ("unlock", OK, "page")]

WAITS_FOR_REPLIES = Group(
    "USB: waiting for a reply",
    "The same device. A reply that never comes, or never the right one, is given up when the device "
    "has been silent for two minutes.",
    "adf-402", [
        *(Row(f"reply {name}: {action}", calls, delivered, REPLY,
              note=FROM_FILE if name == "properties" else "")
          for name, calls, delivered in SILENT_REPLIES
          for action in ("omit", "short 3", "code 0")),
        *(Row(f"reply {name}: garbage 512", calls, delivered, REPLY)
          for name, calls, delivered in SILENT_REPLIES),
        *(Row(f"command {name}: {action}", calls, delivered, REPLY,
              note=SHORT_WRITE if action == "short 3" else "")
          for name, calls, delivered in SILENT_REPLIES for action in ("ignore", "short 3")),
    ], speed=100)

# How many more commands come behind the one that hangs.
HANGING_REPLIES = [
    ("wake", "open=9", 0), ("properties", FAILED_START, 0), ("feeder-status", FAILED_START, 1),
    ("lock", FAILED_START, 0), ("start", FAILED_START, 0), ("unlock", OK, 0)]

WAITS_FOR_DEVICE = Group(
    "USB: a device that hangs",
    "The same device. From the fault on it answers nothing, or takes no command; a command that "
    "follows in the same call waits by itself.",
    "adf-402", [
        Row(fault.format(name), calls, "page" if calls == OK else "nothing",
            first + more * rest)
        for fault, first, rest in (("command {}: timeout", TRANSFER, TRANSFER),
                                   ("reply {}: timeout", REPLY, TRANSFER),
                                   ("command {}: stall", REPLY, REPLY))
        for name, calls, more in HANGING_REPLIES
    ], speed=100)

STATUSES = Group(
    "USB: every status of lock and start",
    "All 256 values in the replies to both commands, on a flatbed of protocol 326.",
    "flatbed-326", [
        Row("reply lock: status 129", "open=0 start=4", "nothing"),
        Row("reply lock: status {}", "open=0 start=3", "nothing", values=(130, 131, 136)),
        Row("reply lock: status {}", "open=0 start=9", "nothing", values=(132, 133, 134)),
        Row("reply lock: status 137", "open=0 start=10", "nothing"),
        Row("reply lock: status {}", OK, "page",
            values=both(range(0, 129), 135, range(138, 256)),
            note="only the statuses above stop a job"),
        Row("reply start: status {}", "open=0 start=4", "nothing", values=(129, 136)),
        Row("reply start: status {}", "open=0 start=3", "nothing", values=(130, 131)),
        Row("reply start: status {}", "open=0 start=9", "nothing", values=(132, 133, 134)),
        Row("reply start: status 137", "open=0 start=10", "nothing"),
        Row("reply start: status {}", OK, "page",
            values=both(range(0, 129), 135, range(138, 256))),
        Row("reply properties: status {}", OK, "page", values=(0, 129, 130, 136, 255),
            note=NOT_EXAMINED),
        Row("reply unlock: status {}", OK, "page", values=(0, 129, 130, 136, 255),
            note=NOT_EXAMINED),
        Row("reply lock: status 130", "open=0 start=3 start=0 read=5", "lines",
            note="a failed start mirrors the scan area, so that the next one scans its mirror "
            "image"),
    ])

PROPERTIES = Group(
    "USB: properties that do not fit",
    "Counts and lengths that run past the end of the reply, on a device of protocol 402.",
    "adf-402", [
        Row("reply properties: sources {}", OK, "page", values=range(256)),
        Row("reply properties: resolutions {}", "open=3", "nothing", values=(0, 1), note=TOO_FEW),
        Row("reply properties: resolutions {}", OK, "page", values=range(2, 256),
            note="a record past the end reads as 0 dpi"),
        Row("reply properties: data-length {}", OK, "page", values=range(8), note=FROM_FILE),
        Row("reply properties: data-length {}", "open=3", "nothing", values=range(8, 22),
            note=TOO_FEW),
        Row("reply properties: data-length {}", "open=0 start=0 read=5", "sent",
            values=range(22, 27), note="75 dpi are not offered, the page has 300"),
        Row("reply properties: data-length {}", OK, "page",
            values=both(range(27, 65), 1000, 0xFFFF)),
        Row("reply properties: truncate {}", OK, "page", values=range(6, 16), note=FROM_FILE),
        Row("reply properties: truncate {}", "open=3", "nothing", values=range(16, 30),
            note=TOO_FEW),
        Row("reply properties: truncate {}", "open=0 start=0 read=5", "sent",
            values=range(30, 35), note="75 dpi are not offered, the page has 300"),
        Row("reply properties: truncate {}", OK, "page", values=range(35, 65)),
    ])

TRUNCATED = Group(
    "USB: replies of every length",
    "The same device. Six bytes are a reply, fewer are none; the whole one has eight.",
    "adf-402", [
        *(Row(f"reply {name}: truncate {{}}", calls, delivered, REPLY, values=range(6),
              note=FROM_FILE if name == "properties" else "")
          for name, calls, delivered in SILENT_REPLIES),
        *(Row(f"reply {name}: truncate {{}}", OK, "page", values=range(6, 65))
          for name, _, _ in SILENT_REPLIES if name != "properties"),
    ], speed=100)

IMAGE = Group(
    "USB: the image data",
    "Flatbed and feeder of protocol 402, a page of 23 blocks from the flatbed.",
    "adf-402", [
        *(Row(f"{event}: {action}", FAILED_READ, f"blocks {whole}")
          for event, whole in (("marker", 0), ("block 1", 0), ("block 11", 10), ("block 23", 22),
                               ("end", 23))
          for action in ("stall", "unplug", "replug", "zero")),
        *(Row(f"{event}: {action}", OK, "page")
          for event in ("block 1", "block 11", "block 23")
          for action in ("short 3", "short 500", "delay 50")),
        Row("marker: short 3", OK, "page"),
        Row("marker: delay 50", OK, "page"),
        Row("end: delay 50", OK, "page"),
        *(Row(f"{event}: jam", "open=0 start=0 read=6", f"blocks {whole}")
          for event, whole in (("marker", 0), ("block 1", 0), ("block 11", 10), ("block 23", 22),
                               ("end", 23))),
        *(Row(f"{event}: {action}", OK, "other", note=UNCHECKED)
          for event in ("marker", "block 1", "block 11", "block 23")
          for action in ("stray 8", "garbage 8")),
        Row("end: stray 8", OK, "other", note=UNCHECKED),
        *(Row(f"block {number}: {action}", OK, "other", note=UNCHECKED)
          for number in (1, 11) for action in ("truncate 5", "twice", "omit")),
        Row("block 23: {}", OK, "blocks 22", values=("truncate 5", "omit"), note=SHORTENED),
        Row("marker: truncate 5", OK, "other", note=UNCHECKED),
        *(Row(f"block 11: data-length {size}", OK, "page") for size in (0, 1, 500, 1015)),
        *(Row(f"block 11: data-length {size}", OK, "other",
              note="the next header is within the length, so it is image data")
          for size in (1048, 0xFFFF)),
        Row("block 11: data-length 1046", OK, "other",
            note="behind the odd byte no header is looked for"),
    ])

IMAGE_WAITS = Group(
    "USB: image data that does not come",
    "The same device. A transfer is given up after half a minute.",
    "adf-402", [
        *(Row(f"{event}: timeout", FAILED_READ, f"blocks {whole}", TRANSFER)
          for event, whole in (("marker", 0), ("block 1", 0), ("block 11", 10), ("block 23", 22),
                               ("end", 23))),
        *(Row(f"end: {action}", FAILED_READ, "page", TRANSFER)
          for action in ("omit", "short 3", "truncate 5")),
        Row("end: garbage 8", FAILED_READ, "other", TRANSFER, note=UNCHECKED),
        Row("end: code {}", FAILED_READ, "page", TRANSFER,
            values=both(0, range(6, 15), range(16, 21), 127, 128, 254, 255),
            note="no end that is known"),
    ], speed=100)

RECORDS = Group(
    "USB: scan records",
    "The same device. A record of every code between two blocks and in place of the end; page "
    "markers that are missing, late, double or wrong; pages that end where no line does.",
    "adf-402", [
        Row("block 3: record {}", OK, "page",
            values=both(0, range(6, 15), 16, 17, range(18, 256)),
            note="not known, or without a meaning there"),
        Row("block 3: record 1", OK, "blocks 2", note="the end of the page"),
        Row("block 3: record 2", "open=0 start=0 read=10", "blocks 2"),
        Row("block 3: record {}", "open=0 start=0 read=2", "blocks 2", values=(3, 4)),
        Row("block 3: record 5", "open=0 start=0 read=6", "blocks 2"),
        Row("block 3: record 15", FAILED_READ, "blocks 2"),
        Row("end: code 1", OK, "page"),
        Row("end: code 2", "open=0 start=0 read=10", "page"),
        Row("end: code {}", "open=0 start=0 read=2", "page", values=(3, 4)),
        Row("end: code 5", "open=0 start=0 read=6", "page"),
        Row("end: code 15", FAILED_READ, "page"),
        Row("end: twice", OK, "page"),
        Row("end: follow {}", OK, "page", values=(1, 1000, 40000)),
        Row("block 3: code 9", OK, "other", note="a block that says it is a record is one"),
        Row("marker: {}", OK, "page",
            values=("omit", "twice", "late 1", "late 5", "late 23", "late 99")),
        Row("marker: pixels {}", OK, "page", values=(0, 1, 40, 1000, 0xFFFFFFFF),
            note="the lines are as long as was asked for"),
        Row("marker: lines {}", OK, "page", values=(0, 1, 50, 10000, 0xFFFFFFFF)),
        Row("marker: {}", OK, "page",
            values=("offset 7", "trim 9", "data-length 0", "data-length 0xFFFF", "interleave 2")),
        Row("marker: interleave", OK, "other", note="whole lines are merged as if they were halves"),
        Row("page: keep {}", OK, "bytes {}",
            values=(0, 1, 100, 263, 264, 265, 1000, 1023, 1024, 1025, 5000, 23231),
            note=SHORTENED),
        Row("page: lines {}", OK, "sent", values=(0, 1, 40), note=SHORTENED),
        Row("page: lines {}", OK, "sent", values=(89, 177, 1000), note=LINES_MORE),
    ])

HALF_LINES = Group(
    "USB: lines in two halves",
    "Flatbed and feeder of protocol 326 whose lines come as half-lines.",
    "combo-326", [
        Row("page: keep {}", OK, "lines",
            values=(0, 1, 100, 135, 136, 270, 271, 272, 273, 1000, 5000, 20000), note=SHORTENED),
        Row("page: lines {}", OK, "sent", values=(0, 1, 40), note=SHORTENED),
        Row("block 11: {}", FAILED_READ, "beginning", values=("stall", "unplug", "replug", "zero")),
        Row("block 11: jam", "open=0 start=0 read=6", "beginning"),
        Row("marker: {}", OK, "other",
            values=("omit", "short 3", "interleave 0", "interleave 2", "late 99"),
            note="only the marker tells that lines come in halves"),
        Row("marker: twice", OK, "page"),
        Row("marker: {}", "open=0 start=0 read=5", "other",
            values=("pixels 1", "pixels 40", "pixels 1000",
                    "offset 40", "offset 0xFFFFFFFF", "trim 50", "trim 0xFFFFFFFF"),
            note="the marker tells how the halves are merged"),
        Row("marker: lines {}", OK, "page", values=(0, 1, 50, 10000, 0xFFFFFFFF)),
        Row("marker: pixels {}", FAILED_READ, "nothing", values=(0, 0xFFFFFFFF),
            note="no line can be made of the data"),
    ])

COMPRESSED = Group(
    "USB: compressed pages",
    "Flatbed and feeder of protocol 402 whose pages come in chunks of 8 lines.",
    "wicket-402,band-lines=8", [
        Row("page: keep {}", OK, "nothing", values=(0, 1), note="zeros are no part of a chunk"),
        Row("page: keep {}", FAILED_READ, "beginning", values=(4, 15, 16, 17, 100, 500, 1000),
            note="a part of a chunk cannot be decoded"),
        Row("page: lines {}", OK, "sent", values=(0, 8, 40), note=SHORTENED),
        Row("page: lines {}", OK, "sent", values=(96, 177), note=LINES_MORE),
        Row("block 2: {}", FAILED_READ, "beginning", values=("stall", "unplug", "replug", "zero")),
        Row("block 2: jam", "open=0 start=0 read=6", "beginning"),
        Row("end: {}", FAILED_READ, "page", values=("stall", "unplug", "replug", "zero")),
        Row("block 2: short {}", OK, "page", values=(1, 2, 3, 30, 31, 32, 500)),
        Row("marker: {}", OK, "page",
            values=("omit", "twice", "late 1", "late 99", "pixels 1", "lines 1")),
        Row("chunk 3: {}", OK, "lines", values=("flip-bits 1", "flip-bits 40"),
            note="decoded as far as it goes; the chunks behind it are unharmed"),
        Row("chunk 3: {}", FAILED_READ, "beginning",
            values=("size 0", "size 1", "size 0xFFFFFFFF", "pixels 0xFFFFFFFF")),
        Row("chunk 3: lines 0xFFFFFFFF", FAILED_READ, "other"),
        Row("block 2: record {}", OK, "page", values=(0, 9, 18, 200)),
    ], options={**SMALL, "br-x": 60})

CANCELLED = Group(
    "USB: cancels that go wrong",
    "Flatbed and feeder of protocol 402 that sends a page slowly; it is cancelled after its "
    "beginning. What is still sent is taken away, for ten seconds at most, and then the reply to "
    "the unlock is waited for.",
    "adf-402,block-delay-ms=1", [
        Row("command cancel: {}", "open=0 start=0 part=0 cancel read=9", "beginning",
            values=("unplug", "replug"), note=AFTER_FLUSH),
        Row("command cancel: {}", "open=0 start=0 part=0 cancel read=2", "beginning", 16,
            values=("stall", "ignore", "short 3")),
        Row("page: lines 100000; command cancel: ignore",
            "open=0 start=0 part=0 cancel read=2", "beginning", 16,
            note="a device that never stops sending"),
        Row("command cancel: timeout", "open=0 start=0 part=0 cancel read=2", "beginning",
            TRANSFER),
        Row("block 60: timeout; command cancel: ignore",
            "open=0 start=0 part=0 cancel read=9", "beginning", 2 * TRANSFER),
        Row("reply unlock: {}", "open=0 start=0 part=0 cancel read=2", "beginning", TRANSFER,
            values=("omit", "timeout", "stall", "unplug")),
        Row("command unlock: {}", "open=0 start=0 part=0 cancel read=2", "beginning", TRANSFER,
            values=("ignore", "timeout", "stall", "unplug")),
        Row("block 30: record 2; command cancel: ignore",
            "open=0 start=0 part=0 cancel read=10", "beginning", 16, note=AFTER_FLUSH),
        Row("block 30: record 15; command cancel: ignore",
            "open=0 start=0 part=0 cancel read=9", "beginning", 16, note=AFTER_FLUSH),
        Row("reply lock: omit", "open=0 start!2", "nothing", TRANSFER,
            note="a cancel from another thread ends the wait with the transfer"),
        Row("block 30: timeout", "open=0 start=0 read!2", "beginning", 2 * TRANSFER),
    ], options={"resolution": 75}, speed=10)

SHEETS = Group(
    "USB: the feeder",
    "Flatbed and feeder of protocol 402 with three sheets in the feeder, each of them another page.",
    "adf-402", [
        Row("marker 1: jam", "open=0 start=0 read=6 start=0 read=5", "sent"),
        Row("block {}: jam", "open=0 start=0 read=6 start=0 read=5", "sent", values=(1, 11, 23)),
        Row("block {}: jam", "open=0 start=0 read=5 start=0 read=6", "sent", values=(24, 34, 46)),
        Row("block {}: jam", "open=0 start=0 read=5 start=0 read=5 start=0 read=6", "sent",
            values=(47, 57, 69)),
        Row("end: jam", "open=0 start=0 read=6 start=0 read=5 start=0 read=5 start=7", "nothing"),
        Row("end 3: jam", "open=0 start=0 read=5 start=0 read=5 start=0 read=6", "sent"),
        Row("!load-sheets 0", "open=0 start=7", "nothing"),
        Row("!load-sheets 1", "open=0 start=0 read=5 start=7 [load-sheets 2] start=0 read=5",
            "sent"),
        Row("!load-sheets 3", "open=0 start=0 read=5 [load-sheets 0] start=7", "nothing",
            note="the paper is removed between two sheets"),
        Row("command feeder-status 2: remove-paper", "open=0 start=0 read=5 start=7", "nothing"),
        Row("command lock 2: remove-paper", "open=0 start=0 read=5 start=4", "nothing",
            note="the device refuses what it has said to be possible"),
        Row("command start 2: remove-paper", "open=0 start=0 read=5 start=4", "nothing"),
        Row("page 2: lines {}", "open=0 start=0 read=5 start=0 read=5", "sent",
            values=(1, 40, 87, 100), note="sheets of different lengths"),
        Row("page 1: lines 60; page 2: lines 110; page 3: lines 30",
            "open=0 start=0 read=5 start=0 read=5 start=0 read=5 start=7", "nothing"),
        Row("reply feeder-status: feeder 0", "open=0 start=1", "nothing"),
        Row("reply feeder-status: feeder 1", "open=0 start=7", "nothing"),
        Row("reply feeder-status: feeder {}", OK, "sent", values=range(2, 256),
            note="only 0 and 1 stop a job"),
        Row("block 24: {}", "open=0 start=0 read=5 start=0 read=9", "beginning",
            values=("stall", "unplug", "replug", "zero"), note="at the second sheet"),
    ], options={**SMALL, "source": FEEDER}, sheets=3)

NETWORK = Group(
    "Network: the connection",
    "A flatbed of protocol 326 on the network. The first connection is that of `sane_open`; what it "
    "misses is made up for at the start.",
    "--net flatbed-326", [
        Row("connect: reset", OK, "page"),
        Row("connect: half-close", OK, "page"),
        Row("connect: half-close; connect 2: half-close", FAILED_START, "nothing"),
        Row("tickle: reset", OK, "page"),
        Row("tickle: half-close 5", OK, "page"),
        Row("tickle: reset; tickle 2: half-close", FAILED_START, "nothing"),
        Row("tickle: lose 1", OK, "page"),
        Row("tickle: length 5", OK, "page", note="the length is not looked at"),
        Row("tickle: extra 3", FAILED_START, "nothing"),
        Row("tickle: delay 300", OK, "page"),
        Row("!close-port", FAILED_START, "nothing", recovery="open-port"),
        *(Row(f"{event} properties: {action}", OK, "page", note=FROM_FILE)
          for event, action in (("command", "reset"), ("command", "half-close"),
                                ("reply", "reset"), ("reply", "half-close"),
                                ("reply", "half-close 20"))),
        *(Row(f"{event} {name}: {action}", FAILED_START, "nothing")
          for name in ("lock", "start")
          for event, action in (("command", "reset"), ("command", "half-close"),
                                ("reply", "reset"), ("reply", "reset 12"),
                                ("reply", "half-close"), ("reply", "half-close 12"),
                                ("reply", "replug"), ("command", "replug"))),
        *(Row(f"{event} unlock: {action}", OK, "page", note=NOTICED_AT_EXIT)
          for event in ("command", "reply") for action in ("reset", "half-close")),
        *(Row(f"reply lock: {action}", OK, "page")
          for action in ("zero", "stray 8", "twice", "precede 6", "delay 50")),
        Row("reply lock: status 137", "open=0 start=10", "nothing"),
        Row("reply lock: status 131", "open=0 start=3", "nothing"),
        Row("reply start: zero", OK, "page"),
        Row("reply start: precede 6", OK, "page"),
        Row("reply start: twice", OK, "other", note=UNCHECKED),
    ])

NETWORK_IMAGE = Group(
    "Network: the image data",
    "The same device.",
    "--net flatbed-326", [
        *(Row(f"{event}: {action}", FAILED_READ, f"blocks {whole}")
          for event, whole in (("marker", 0), ("block 1", 0), ("block 11", 10), ("block 23", 22),
                               ("end", 23))
          for action in ("reset", "half-close", "half-close 12")),
        Row("block 11: {}", FAILED_READ, "blocks 10",
            values=("reset 500", "half-close 500", "magic", "length 0", "length 0xFFFFFFFF")),
        Row("block 11: extra 3", FAILED_READ, "blocks 11"),
        Row("block 11: lose 5", FAILED_READ, "other",
            note="the frame takes the next one's header along, which the failure follows"),
        Row("marker: {}", FAILED_READ, "nothing", values=("magic", "length 5")),
        Row("end: magic", FAILED_READ, "page"),
        Row("end: extra 3", "open=0 start=0 read!5", "page",
            note="the reply to the unlock is not found any more; a cancel ends the wait"),
        Row("end: lose 3", "open=0 start=0 read!2", "page"),
        Row("{}: zero", OK, "page", values=("marker", "block 1", "block 11", "block 23", "end")),
        Row("block 11: short {}", OK, "page", values=(2, 3, 8, 9, 10, 500)),
        *(Row(f"block 11: {action}", OK, "other", note=UNCHECKED)
          for action in ("stray 8", "garbage 50", "truncate 5", "twice", "omit")),
        Row("block 11: jam", "open=0 start=0 read=6", "blocks 10"),
        Row("marker: {}", OK, "page", values=("omit", "twice", "late 5", "late 99")),
        Row("block 3: record {}", OK, "page",
            values=both(0, range(6, 15), 16, 17, range(18, 256))),
        Row("block 3: record 1", OK, "blocks 2"),
        Row("block 3: record 2", "open=0 start=0 read=10", "blocks 2"),
        Row("block 3: record {}", "open=0 start=0 read=2", "blocks 2", values=(3, 4)),
        Row("block 3: record 5", "open=0 start=0 read=6", "blocks 2"),
        Row("block 3: record 15", FAILED_READ, "blocks 2"),
        Row("end: twice", OK, "page"),
        Row("end: follow 1000", OK, "page"),
        Row("page: keep {}", OK, "bytes {}",
            values=(0, 1, 100, 263, 264, 265, 1000, 1023, 1024, 1025, 5000, 23231),
            note=SHORTENED),
        Row("block 11: silence", "open=0 start=0 read!2", "beginning", 6,
            note="a silent scanner is waited for until the cancel"),
        Row("reply lock: magic", "open=0 start!2", "nothing", 6,
            note="the reply is waited for until the cancel"),
        Row("reply lock: silence", "open=0 start!2", "nothing", 6),
        Row("command cancel: {}", "open=0 start=0 part=0 cancel read=5", "beginning",
            values=("reset", "half-close"), note=AFTER_FLUSH),
    ])

NETWORK_WAITS = Group(
    "Network: a scanner that does not answer",
    "The same device. The answer to the connection is waited for three times fifteen seconds; the "
    "page is cancelled where that is said.",
    "--net flatbed-326", [
        Row("tickle: {}", OK, "page", TICKLE, values=("timeout", "silence", "truncate 5")),
        Row("tickle: {}", OK, "page", TICKLE, values=("garbage 9", "magic")),
        Row("connect: timeout", OK, "page", TICKLE),
        Row("connect: half-close; tickle: garbage 9", FAILED_START, "nothing", TICKLE),
        Row("block 5: silence", "open=0 start=0 part=0 cancel read=2", "beginning", 5),
    ], speed=20)

CUT_FRAMES = Group(
    "Network: frames cut and merged",
    "The same device, whose frames have random sizes and travel in pieces.",
    "--net flatbed-326,frame-size=random:7,segment-size=61", [
        Row("reply lock: reset 12", FAILED_START, "nothing"),
        Row("block 11: half-close", FAILED_READ, "beginning"),
        Row("block 11: jam", "open=0 start=0 read=6", "blocks 10"),
        Row("page: keep {}", OK, "bytes {}", values=(0, 1, 265, 1025, 23231), note=SHORTENED),
        Row("marker: {}", OK, "page", values=("omit", "twice", "late 5")),
        Row("block 3: record {}", OK, "page", values=(0, 9, 18, 200)),
        Row("end: follow 1000", OK, "page"),
    ])

# Each by itself, because a vanished peer takes a minute to be noticed.
VANISHING = [
    Group("Network: a scanner that vanishes",
          "The same device, which disappears without a word, for the last row behind a link. The "
          "kernel notices that after a minute, or after a quarter of one where the device is back; "
          "a cancel ends the wait before.",
          "--net flatbed-326", [row], simulation=simulation)
    for row, *simulation in [
        (Row("connect: unplug", FAILED_START, "nothing", VANISHED),),
        (Row("tickle: vanish", FAILED_START, "nothing", VANISHED),),
        (Row("command lock: unplug", FAILED_START, "nothing", VANISHED),),
        (Row("reply lock: vanish", FAILED_START, "nothing", VANISHED),),
        (Row("marker: vanish", FAILED_READ, "nothing", VANISHED),),
        (Row("block 11: vanish 500", FAILED_READ, "blocks 10", VANISHED),),
        (Row("block 11: replug", FAILED_READ, "blocks 10", 16),),
        (Row("end: vanish", FAILED_READ, "page", VANISHED),),
        (Row("block 11: vanish 300", FAILED_READ, "blocks 10", VANISHED), "--veth"),
    ]
]

GROUPS = [OPENING, COMMANDS, WAITS_FOR_REPLIES, WAITS_FOR_DEVICE, STATUSES, PROPERTIES, TRUNCATED,
          IMAGE, IMAGE_WAITS, RECORDS, HALF_LINES, COMPRESSED, CANCELLED, SHEETS, NETWORK,
          NETWORK_IMAGE, NETWORK_WAITS, CUT_FRAMES, *VANISHING]
