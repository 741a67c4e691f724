# SPDX-License-Identifier: LGPL-2.1-or-later
"""gscan2pdf, which opens a window for each thing that is done."""

from desktop import choices_of, choose, click, descendants, has, press, type_into, wait_until
from trial import require_mode, require_same_pixels

NAME = "gscan2pdf"
PROGRAM = "net.sourceforge.gscan2pdf"
MODES = ["24-bit Color", "8-bit Grayscale"]
SOURCES = ["Flatbed", "Automatic Document Feeder"]
RESOLUTIONS = ["600", "300", "150", "75"]
TYPES = ["PDF", "GIF", "JPEG", "PNG", "PNM", "PS", "TIFF", "Text", "hOCR", "Session"]


class Session:
    def __init__(self, trial, devices):
        self.trial = trial
        self.program = trial.start(PROGRAM, devices, [NAME])
        # Of programs that it would like to have.
        self.program.click("push button", "Close")
        press(self.program.find("push button", "Scan"))
        trial.screenshot("ready")

    def in_window(self, title, role, name):
        """Also what its small windows do not show before somebody scrolls."""
        return wait_until(lambda: next(
            (widget for window in self.program.shown("dialog") if window.get_name() == title
             for widget in descendants(window)
             if widget.get_role_name() == role and widget.get_name() == name), None),
            f"{role} {name!r} in {title}")

    def choose(self, choices, name):
        """A choice makes it build the others anew."""
        choose(wait_until(lambda: next(
            (widget for widget in self.program.widgets()
             if widget.get_role_name() == "combo box" and choices_of(widget) == choices), None),
            str(choices)), name)
        wait_until(lambda: any(widget.get_name() == name for widget in self.program.widgets()
                               if widget.get_role_name() == "combo box"), name)

    def scan(self, pages):
        """Until so many pages have been scanned since the start, and are in its list."""
        press(self.in_window("Scan Document", "push button", "Scan"))
        wait_until(lambda: len(self.trial.pages_played()) == pages, f"{pages} pages")
        wait_until(lambda: any(cell.get_name() == str(pages)
                               for cell in self.program.shown("table cell")), f"page {pages}")
        self.trial.screenshot("scanned")

    def save(self, name, pattern, count):
        """Returns the files."""
        press(self.in_window("Scan Document", "push button", "Close"))
        press(self.program.find("push button", "Save"))
        self.choose(TYPES, "PNG")
        press(self.in_window("Save", "radio button", "All"))
        click(self.in_window("Save", "push button", "Save"))
        chooser = self.program.find("file chooser")
        type_into(first(chooser, "text"), str(self.trial.home / name))
        self.trial.screenshot("saving")
        press(first(chooser, "push button", "Save"))
        return self.trial.wait_for_pages(pattern, count)


def first(window, role, name=None):
    """That can be used."""
    return wait_until(lambda: next(
        (widget for widget in descendants(window)
         if widget.get_role_name() == role and name in (None, widget.get_name())
         and has(widget, "SHOWING", "SENSITIVE")), None), role)


def grey(trial):
    """grey, 150 dpi, glass"""
    session = Session(trial, ["--usb", "adf-402"])
    session.choose(MODES, "8-bit Grayscale")
    session.choose(RESOLUTIONS, "150")
    session.scan(1)
    saved = session.save("page.png", "page.png", 1)
    require_same_pixels(saved, trial.pages_played())
    require_mode(saved[0], "L")
    trial.quit()


def feeder(trial):
    """three sheets from the feeder"""
    session = Session(trial, ["--usb", "adf-402,feeder.sheets=3"])
    session.choose(RESOLUTIONS, "75")
    session.choose(SOURCES, "Automatic Document Feeder")
    press(session.in_window("Scan Document", "radio button", "All"))
    session.scan(3)
    saved = session.save("sheet.png", "sheet*.png", 3)
    require_same_pixels(saved, trial.pages_played())
    trial.quit()


STEPS = [grey, feeder]
