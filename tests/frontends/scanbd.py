# SPDX-License-Identifier: LGPL-2.1-or-later
"""scanbd, which polls scanners for the keys that are pressed, and lends them to saned."""

import os
import sys
from pathlib import Path

from trial import require_same_pixels

INSIDE = Path(__file__).with_name("inside_scanbd.py")
PAGES = 3
END_SECONDS = 120
# It looks for a system bus, and the one of the trials is as good.
BUS = "DBUS_SYSTEM_BUS_ADDRESS=" + os.environ.get("DBUS_SESSION_BUS_ADDRESS", "")


def try_scanners(trial, devices):
    trial.start("scanbd", devices, ["env", BUS, sys.executable, str(INSIDE),
                                    os.environ["SCANBD_FOLDER"], str(PAGES)])
    trial.wait_for_end(END_SECONDS)
    require_same_pixels(trial.wait_for_pages("*.png", len(trial.pages_played())),
                        trial.pages_played())


def polled(trial):
    """polled, scanned through scanbm, looked for again, released"""
    try_scanners(trial, ["--usb", "adf-402"])


def locked(trial):
    """the same with a scanner that needs no command to be opened"""
    try_scanners(trial, ["--usb", "flatbed-326"])


STEPS = [polled, locked]
