# SPDX-License-Identifier: LGPL-2.1-or-later
"""xsane, told to save what it scans."""

import os
import time

from PIL import Image

from desktop import (area_of, choices_of, choose, click, descendants, set_number, type_into,
                     wait_until)
from trial import difference, picture_in, require, require_mode, require_same_pixels

NAME = "xsane"
SLOW = "block-size=4000,block-delay-ms=20"
MODES = ["24-bit Color", "8-bit Grayscale"]
SOURCES = ["Flatbed", "Automatic Document Feeder"]
RESOLUTIONS = ["600", "300", "150", "75"]
CORNERS = ["Top-left x", "Top-left y", "Bottom-right x", "Bottom-right y"]
WHOLE_LINES = 825
# Gamma, contrast and brightness, and the dithering of a small picture: a little, not another page.
LIKE = 25


class Session:
    def __init__(self, trial, devices):
        self.trial = trial
        self.program = trial.start(NAME, devices, [NAME, "-s"])
        if os.geteuid() == 0:
            self.program.click("push button", "Continue at your own risk")
        self.program.find("push button", "Scan")
        trial.screenshot("ready")

    def window(self, title):
        return wait_until(lambda: next((frame for frame in self.program.shown("frame")
                                        if frame.get_name().startswith(title)), None), title)

    def in_window(self, title, role):
        return [widget for widget in descendants(self.window(title))
                if widget.get_role_name() == role]

    def combo(self, choices):
        return wait_until(lambda: next((combo for combo in self.program.shown("combo box")
                                        if choices_of(combo) == choices), None), str(choices))

    def save_as(self, name):
        [entry] = self.in_window("xsane ", "text")
        type_into(entry, str(self.trial.home / name))

    def set_sheets(self, count):
        set_number(self.in_window("xsane ", "spin button")[0], count)

    def scan(self, pages):
        """Until so many pages have been scanned since the start."""
        self.program.click("push button", "Scan")
        wait_until(lambda: len(self.trial.pages_played()) == pages, f"{pages} pages")
        self.program.find("push button", "Scan")

    def cancel(self, begin, end):
        """It does not tell of its widgets while it reads, but takes clicks."""
        [button] = [shown for shown in self.program.shown("push button")
                    if shown.get_name() == end]
        self.program.click("push button", begin)
        time.sleep(2)
        self.trial.screenshot("reading")
        click(button)
        self.program.click("push button", "Close")
        self.program.find("push button", "Scan")


def options(trial):
    """the options have the right widgets"""
    session = Session(trial, ["--usb", "adf-402"])
    for choices in (MODES, SOURCES, RESOLUTIONS):
        session.combo(choices)
    labels = [label.get_name() for label in session.in_window("Standard options", "label")]
    for corner in CORNERS:
        require(any(label.startswith(corner) for label in labels), f"no {corner}: {labels}")
    require(len(session.in_window("Standard options", "spin button")) == len(CORNERS), "corners")
    [media] = session.in_window("Standard options", "combo box")
    require("A4 (210 x 297 mm)" in choices_of(media), "no A4")
    choose(media, "4 x 6 in")
    size = "300*450*24 "
    wait_until(lambda: any(label.get_name().startswith(size)
                           for label in session.program.shown("label")), size)
    trial.screenshot("media")
    trial.quit()


def page(trial):
    """colour, 75 dpi, glass"""
    session = Session(trial, ["--usb", "adf-402"])
    session.save_as("page.png")
    session.scan(1)
    saved = trial.wait_for_pages("page.png", 1)
    require_same_pixels(saved, trial.pages_played())
    require_mode(saved[0], "RGB")
    trial.quit()


def grey(trial):
    """grey, 150 dpi, glass"""
    session = Session(trial, ["--usb", "flatbed-326"])
    choose(session.combo(MODES), "8-bit Grayscale")
    choose(session.combo(RESOLUTIONS), "150")
    session.save_as("page.png")
    session.scan(1)
    saved = trial.wait_for_pages("page.png", 1)
    trial.screenshot("scanned")
    require_same_pixels(saved, trial.pages_played())
    require_mode(saved[0], "L")
    trial.quit()


def feeder(trial):
    """three sheets from the feeder"""
    scan_sheets(trial, ["--usb", "adf-402,feeder.sheets=3"], "75")


def narrowing_feeder(trial):
    """sheets of a bed of 216 mm, where the second is narrower"""
    scan_sheets(trial, ["--usb", "adf-402,feeder.sheets=3,flatbed.width=2560,feeder.width=2560",
                        "--feature", "BOTTOMRIGHTX=216.0", "--feature", "CURRENTBRX=216.0"], "300")


def scan_sheets(trial, devices, resolution):
    session = Session(trial, devices)
    choose(session.combo(RESOLUTIONS), resolution)
    choose(session.combo(SOURCES), "Automatic Document Feeder")
    session.save_as("sheet-1.png")
    session.set_sheets(3)
    session.scan(3)
    saved = trial.wait_for_pages("sheet-*.png", 3)
    trial.screenshot("scanned")
    require_same_pixels(saved, trial.pages_played())
    trial.quit()


def preview(trial):
    """a preview, then a page"""
    session = Session(trial, ["--usb", "adf-402"])
    session.program.click("push button", "Acquire preview")
    wait_until(trial.pages_played, "the preview")
    session.program.find("push button", "Acquire preview")
    trial.screenshot("preview")
    # The largest of the areas it draws on is that with the picture.
    largest = max(session.in_window("Preview", "unknown"), key=size_of)
    with Image.open(trial.pages_played()[0]) as played:
        off = difference(picture_in(largest, played.size), played)
        require(off < LIKE, f"the preview differs by {off:.0f}")
        require(difference(Image.new("L", played.size, 255), played) > 2 * LIKE, "as good as white")
    session.save_as("page.png")
    session.scan(2)
    trial.wait_for_pages("page.png", 1)
    trial.quit()


def size_of(widget):
    left, top, right, bottom = area_of(widget)
    return (right - left) * (bottom - top)


def cancel(trial):
    """page and preview cancelled in the middle, then a whole page"""
    session = Session(trial, ["--usb", f"adf-402,{SLOW}"])
    session.save_as("page.png")
    session.cancel("Scan", "Cancel")
    session.save_as("whole.png")
    session.scan(2)
    require_same_pixels(trial.wait_for_pages("whole.png", 1), trial.pages_played()[1:])
    session.cancel("Acquire preview", "Cancel preview")
    trial.screenshot("cancelled")
    for played in trial.pages_played()[::2]:
        with Image.open(played) as cut:
            require(cut.size[1] < WHOLE_LINES, f"{played}: not cancelled")
    session.save_as("next.png")
    session.scan(4)
    [saved] = trial.wait_for_pages("next.png", 1)
    with Image.open(saved) as got, Image.open(trial.pages_played()[3]) as wanted:
        require(got.size == wanted.size, f"{saved}: {got.size}, not {wanted.size}")
        require(difference(got, wanted) < LIKE, f"{saved}: another page")
    trial.quit()


STEPS = [options, page, grey, feeder, narrowing_feeder, preview, cancel]
