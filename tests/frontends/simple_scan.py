# SPDX-License-Identifier: LGPL-2.1-or-later
"""simple-scan, which calls itself Document Scanner."""

from desktop import choices_of, choose, press, send_keys, type_into, wait_until
from trial import require, require_mode, require_same_pixels

NAME = "simple-scan"
SLOW = "block-size=4000,block-delay-ms=5"
SEARCH_SECONDS = 60


def of_text(sample):
    """It keeps four shades of a text."""
    return sample // 64 * 85


class Session:
    def __init__(self, trial, devices):
        self.trial = trial
        self.program = trial.start(NAME, devices, [NAME])
        self.program.find("push button", "Scan", SEARCH_SECONDS)
        trial.screenshot("ready")

    def press_menu(self):
        press(self.program.shown("toggle button")[0])

    def choose(self, *buttons):
        self.press_menu()
        for button in buttons:
            press(self.program.find("radio button", button))
        self.trial.screenshot("menu")
        self.press_menu()

    def set_image_resolution(self, resolution):
        self.press_menu()
        press(self.program.find("push button", "Preferences"))
        choose(self.program.find("combo box", "300 dpi (default)"), resolution)
        self.trial.screenshot("preferences")
        send_keys("Escape")
        wait_until(lambda: not self.program.shown("slider"), "the end of the preferences")
        self.press_menu()

    def scan(self, pages):
        """Until so many pages have been scanned since the start."""
        self.program.click("push button", "Scan")
        wait_until(lambda: len(self.trial.pages_played()) == pages, f"{pages} pages")
        self.program.find("push button", "Scan")

    def save(self, name, pattern, count):
        """Returns the files."""
        # Beside the button of the menu, with a picture only.
        self.program.click("push button", "")
        choose(self.program.find("combo box", "PDF (multi-page document)"), "PNG (lossless)")
        type_into(self.program.find("text"), str(self.trial.home / name))
        self.trial.screenshot("saving")
        self.program.click("push button", "Save")
        return self.trial.wait_for_pages(pattern, count)


def page(trial):
    """Image, 75 dpi, glass"""
    session = Session(trial, ["--usb", "adf-402"])
    [scanners] = session.program.shown("combo box")
    require(choices_of(scanners) == ["Quillon Combo 402"], choices_of(scanners))
    session.choose("Image", "Single Page")
    session.set_image_resolution("75 dpi (draft)")
    session.scan(1)
    saved = session.save("page.png", "page.png", 1)
    trial.screenshot("scanned")
    require_same_pixels(saved, trial.pages_played())
    require_mode(saved[0], "RGB")
    trial.quit()


def text(trial):
    """Text, 150 dpi, glass"""
    session = Session(trial, ["--usb", "flatbed-326"])
    session.choose("Text", "Single Page")
    session.scan(1)
    saved = session.save("page.png", "page.png", 1)
    trial.screenshot("scanned")
    require_same_pixels(saved, trial.pages_played(), of_text)
    require_mode(trial.pages_played()[0], "L")
    trial.quit()


def feeder(trial):
    """three sheets from the feeder"""
    scan_sheets(trial, ["--usb", "adf-402,feeder.sheets=3"])


def narrowing_feeder(trial):
    """sheets of a bed of 216 mm, where the second is narrower"""
    scan_sheets(trial, ["--usb", "adf-402,feeder.sheets=3,flatbed.width=2560,feeder.width=2560",
                        "--feature", "BOTTOMRIGHTX=216.0", "--feature", "CURRENTBRX=216.0"])


def scan_sheets(trial, devices):
    session = Session(trial, devices)
    session.choose("Image", "All Pages From Feeder")
    session.scan(3)
    saved = session.save("sheet.png", "sheet-*.png", 3)
    trial.screenshot("scanned")
    require_same_pixels(saved, trial.pages_played())
    trial.quit()


def cancel(trial):
    """stopped in the middle of a page, then a whole page"""
    session = Session(trial, ["--usb", f"adf-402,{SLOW}"])
    session.choose("Text", "Single Page")
    session.program.click("push button", "Scan")
    session.program.find("push button", "Stop")
    trial.screenshot("scanning")
    session.program.click("push button", "Stop")
    session.scan(2)
    saved = session.save("page.png", "page-*.png", 2)
    require_same_pixels(saved[1:], trial.pages_played()[1:], of_text)
    trial.quit()


def network(trial):
    """a scanner on the network"""
    session = Session(trial, ["--net", "adf-402"])
    session.choose("Text", "Single Page")
    session.scan(1)
    saved = session.save("page.png", "page.png", 1)
    trial.screenshot("scanned")
    require_same_pixels(saved, trial.pages_played(), of_text)
    trial.quit()


STEPS = [page, text, feeder, narrowing_feeder, cancel, network]
