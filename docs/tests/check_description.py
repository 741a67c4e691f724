#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Checks a description of supported devices: its grammar, and that it has the models of the
backend's configuration file, in its order.

usage: check_description.py <description> <configuration file>

The description is a list of entries ":keyword value ..."; a value is a text in quotes or another
keyword. ";" begins a comment. Which keyword may follow which:

  :backend TEXT             first, and once
    :version TEXT, :manpage TEXT, :url TEXT, :comment TEXT, :new :yes|:no
  :devicetype :scanner
    :mfg TEXT
      :url TEXT, :comment TEXT
      :model TEXT
        :interface TEXT, :usbid TEXT TEXT, :status WORD, :url TEXT, :comment TEXT
"""

import re
import sys
from pathlib import Path

TOKEN = re.compile(r'\s+|;[^\n]*|:[a-z]+|"[^"\n]*"')
STATUSES = {":untested", ":unsupported", ":minimal", ":basic", ":good", ":complete"}
DEVICE_TYPES = {":scanner", ":stillcam", ":vidcam", ":api", ":meta"}
INTERFACES = {"USB", "Ethernet", "SCSI", "IEEE-1394", "Parport", "Proprietary"}
TEXT = r'"[^"]*"'
# The values of each keyword as a pattern, and the scopes that it may stand in.
GRAMMAR = {
    ":backend": (TEXT, {"file"}),
    ":version": (TEXT, {"backend"}),
    ":manpage": (TEXT, {"backend"}),
    ":new": (":(yes|no)", {"backend"}),
    ":url": (TEXT, {"backend", "mfg", "model"}),
    ":comment": (TEXT, {"backend", "mfg", "model"}),
    ":devicetype": ("|".join(DEVICE_TYPES), {"backend", "type", "mfg", "model"}),
    ":mfg": (TEXT, {"type", "mfg", "model"}),
    ":model": (TEXT, {"mfg", "model"}),
    ":interface": (TEXT, {"model"}),
    ":usbid": ('"0x[0-9a-f]{4}" "0x[0-9a-f]{4}"', {"model"}),
    ":status": ("|".join(STATUSES), {"model"}),
}
SCOPES = {":backend": "backend", ":devicetype": "type", ":mfg": "mfg", ":model": "model"}
REPEATED = {":comment", ":url", ":devicetype", ":mfg", ":model"}
OF_EACH_MODEL = [":interface", ":status"]


class DescriptionError(Exception):
    pass


def tokens(text):
    at = 0
    while at < len(text):
        found = TOKEN.match(text, at)
        if found is None:
            line = text.count("\n", 0, at) + 1
            raise DescriptionError(f"line {line}: cannot read {text[at:at + 20]!r}")
        if not found.group().isspace() and not found.group().startswith(";"):
            yield found.group()
        at = found.end()


def entries(text):
    """The keywords that begin an entry, with their values."""
    found = []
    for token in tokens(text):
        if token in GRAMMAR:
            found.append([token])
        elif not found:
            raise DescriptionError(f"{token} before any keyword")
        else:
            found[-1].append(token)
    return found


def parse(text):
    """The description as a list of models, each with the entries of its backend and maker."""
    scope, state, models = "file", {}, []
    for keyword, *values in entries(text):
        pattern, scopes = GRAMMAR[keyword]
        if scope not in scopes:
            raise DescriptionError(f"{keyword} does not belong into {scope}")
        if not re.fullmatch(pattern, " ".join(values)):
            raise DescriptionError(f"{keyword}: bad value {' '.join(values)}")
        value = " ".join(values).replace('"', "")
        if keyword in SCOPES:
            scope = SCOPES[keyword]
        if keyword == ":model":
            models.append({**state, keyword: value})
        elif scope == "model":
            if keyword in models[-1] and keyword not in REPEATED:
                raise DescriptionError(f"{keyword} twice for {models[-1][':model']}")
            models[-1][keyword] = value
        else:
            state[keyword] = value
    for model in models:
        missing = [keyword for keyword in OF_EACH_MODEL if keyword not in model]
        if missing or not set(model[":interface"].split()) <= INTERFACES:
            raise DescriptionError(f"{model[':model']}: needs {' '.join(OF_EACH_MODEL)}")
        if "USB" in model[":interface"] and ":usbid" not in model:
            raise DescriptionError(f"{model[':model']}: no :usbid")
    return models


def configured(text):
    """The models of a configuration file as (name, vendor ID, product ID)."""
    lines = [line.split() for line in text.splitlines() if line.startswith("usb ")]
    return [(name.replace("_", " "), int(vendor, 16), int(product, 16))
            for _, vendor, product, _, name in lines]


def check(description, configuration, backend):
    """The problems, each as a line of text."""
    try:
        models = parse(description)
    except DescriptionError as error:
        return [str(error)]
    needed = configured(configuration)
    problems = [f"{model[':model']}: of backend {model[':backend']}" for model in models
                if model[":backend"] != backend or model.get(":manpage") != f"sane-{backend}"]
    described = [(f"{model[':mfg']} {model[':model']}",
                  *(int(number, 16) for number in model[":usbid"].split())) for model in models]
    if described != needed or not needed:
        problems.append(f"described: {described}, configured: {needed}")
    return problems


def main(description, configuration):
    problems = check(Path(description).read_text(encoding="utf-8"),
                     Path(configuration).read_text(encoding="utf-8"), Path(configuration).stem)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
