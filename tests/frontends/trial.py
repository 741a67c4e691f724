# SPDX-License-Identifier: LGPL-2.1-or-later
"""A front end on simulated scanners, and what it saved beside what they played."""

import os
import signal
import subprocess

from PIL import Image, ImageChops, ImageGrab, ImageStat

from desktop import Program, area_of, point_at, send_keys, wait_until

QUIT_SECONDS = 30
ASK_AGAIN_SECONDS = 8


class Wrong(Exception):
    pass


def require(condition, what):
    if not condition:
        raise Wrong(what)


class Trial:
    """One run of a front end, with a home of its own, from its start to its end."""

    def __init__(self, folder, display, simulation):
        self.folder = folder
        self.display = display
        self.simulation = simulation
        self.home = folder / "home"
        self.played = folder / "played"
        self.process = None
        for made in (self.home / "tmp", self.played):
            made.mkdir(parents=True)

    def start(self, program, devices, command):
        environment = dict(os.environ, HOME=str(self.home), XDG_CONFIG_HOME=str(self.home / "c"),
                           XDG_CACHE_HOME=str(self.home / "cache"), GSETTINGS_BACKEND="memory",
                           TMPDIR=str(self.home / "tmp"))
        with open(self.folder / "log", "w") as log:
            self.process = subprocess.Popen(
                [self.simulation, "--record", str(self.played), *devices, "--", *command],
                cwd=self.home, env=environment, stdin=subprocess.DEVNULL, stdout=log,
                stderr=log, start_new_session=True)
        self.program = Program(program)
        return self.program

    def screenshot(self, name):
        self.display.screenshot(self.folder / f"{name}.png")

    def quit(self):
        """Asked once more after a while, behind a question or message that has come up instead."""
        point_at(self.program.shown("frame")[-1])
        send_keys("ctrl+q")
        try:
            self.wait_for_end(ASK_AGAIN_SECONDS)
        except subprocess.TimeoutExpired:
            send_keys("Escape")
            send_keys("ctrl+q")
            self.wait_for_end()

    def wait_for_end(self, seconds=QUIT_SECONDS):
        """By itself, and the scanners have nothing to complain about."""
        status = self.process.wait(seconds)
        require(status == 0, f"ended with status {status}, see {self.folder / 'log'}")

    def stop(self):
        """Whatever has happened."""
        if self.process and self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()

    def pages_played(self):
        return sorted(self.played.glob("*.pnm"))

    def wait_for_pages(self, pattern, count):
        """The files of that pattern below home, once there are so many and they are whole."""
        def whole():
            files = sorted(self.home.glob(pattern))
            return len(files) == count and all(map(is_image, files)) and files
        return wait_until(whole, f"{count} of {pattern}")


def is_image(path):
    try:
        with Image.open(path) as image:
            image.load()
        return True
    except (OSError, SyntaxError):
        return False


def require_same_pixels(saved, played, kept=lambda sample: sample):
    """kept: what the front end makes of a sample."""
    require(len(saved) == len(played) > 0, f"{len(saved)} pages saved, {len(played)} played")
    for mine, theirs in zip(saved, played):
        with Image.open(mine) as got, Image.open(theirs) as wanted:
            require(got.size == wanted.size, f"{mine}: {got.size}, not {wanted.size}")
            colours = "RGB" if "RGB" in (got.mode, wanted.mode) else "L"
            require(got.convert(colours).tobytes() ==
                    wanted.convert(colours).point(kept).tobytes(),
                    f"{mine} differs from {theirs}")


def require_mode(page, mode):
    with Image.open(page) as image:
        require(image.mode == mode, f"{page}: {image.mode}, not {mode}")


def difference(shown, played):
    """Of two pictures of any size, 0 to 255."""
    size = (40, 55)
    small = [image.convert("L").resize(size, Image.Resampling.BOX) for image in (shown, played)]
    return ImageStat.Stat(ImageChops.difference(*small)).mean[0]


def picture_in(widget, shape):
    """What a widget shows in its upper left corner, as large as it fits with that shape."""
    left, top, right, bottom = area_of(widget)
    scale = min((right - left) / shape[0], (bottom - top) / shape[1])
    area = (left, top, left + round(shape[0] * scale), top + round(shape[1] * scale))
    return ImageGrab.grab(xdisplay=os.environ["DISPLAY"]).crop(area)
