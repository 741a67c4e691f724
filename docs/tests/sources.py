# SPDX-License-Identifier: LGPL-2.1-or-later
"""What the source code has to say about keys, options and messages."""

import re

LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
KEY = re.compile(r"[A-Z][A-Z0-9_]{2,}")
# Texts in capitals that are neither keys nor variables: of the wire, and of one message.
OTHER = {"HBN3", "SL_STATUS_UNSUPPORTED", "IPADDRESS", "MACUAA", "ADAPTERNAME", "PRINTERVIDPID"}

# The calls that tell the type of a key.
TYPED_CALLS = {
    "INTEGERS": r"(?:[GS]etInt(?:Value|Option)|storeValue|intOperand)",
    "DOUBLES": r"(?:[GS]etDouble(?:Value|Option)|doubleOperand)",
    "STRINGS": r"[GS]etString(?:Value|Option)",
}


def read(files):
    return "\n".join(path.read_text(encoding="utf-8") for path in sorted(files))


def variables(text):
    """The environment variables that are read."""
    names = set(re.findall(r'(?:isSwitchedOn|getenv)\("([^"]+)"\)', text))
    for constant in re.findall(r"getenv\((k\w+)\)", text):
        names.update(re.findall(rf'{constant} = "([^"]+)"', text))
    return names


def keys(text):
    """Every key of the option store. Any literal in capitals is one, so that none is missed because
    of the way in which it is passed on."""
    found = {literal for literal in LITERAL.findall(text) if KEY.fullmatch(literal)}
    return found - OTHER - variables(text)


def typed_keys(text):
    """The keys of which the calls tell the type, as (section, key)."""
    return {(section, key) for section, call in TYPED_CALLS.items()
            for key in re.findall(call + r'\(\s*"([A-Z][A-Z0-9_]+)"', text)}


def computed_keys(text):
    found = re.search(r"kComputedKeys\[\] = \{([^}]*)\}", text)
    return set(LITERAL.findall(found.group(1))) if found else set()


def options(text):
    """The names of the options that a front end sees."""
    return {name for name in re.findall(r'\bdescribe(?:List|Corner)?\(\s*kOption\w+,\s*"([^"]*)"', text)} - {""}


def option_values(text):
    """The texts in the lists of the options."""
    lists = re.findall(r"\b\w+_list\w*\[[^\]]*\] = \{([^}]*nullptr[^}]*)\}", text)
    return {value for values in lists for value in LITERAL.findall(values)}


def messages(text):
    """The formats of messages as patterns; literals in a row are one."""
    joined = re.sub(r'"\s*\n\s*"', "", text)
    formats = {literal for literal in LITERAL.findall(joined) if "[" in literal}
    return [re.compile(re.sub(r"%[-.\d]*[a-z]+", ".*", re.escape(literal).replace("\\%", "%")))
            for literal in formats]


def entries(text):
    """The entries of a feature file as (section, key)."""
    section, found = "", set()
    for line in text.splitlines():
        if re.fullmatch(r"\[\w+\]", line):
            section = line[1:-1]
        elif "=" in line and not line.startswith("#"):
            found.add((section, re.sub(r"_\d+$", "_", line.split("=")[0])))
    return found
