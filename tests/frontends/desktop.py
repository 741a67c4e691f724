# SPDX-License-Identifier: LGPL-2.1-or-later
"""A display that nobody sees, programs on it, and their widgets by role and name."""

import os
import subprocess
import time
import warnings

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402
from PIL import ImageGrab  # noqa: E402

warnings.filterwarnings("ignore", category=DeprecationWarning)

SHOWN_SECONDS = 60
POLL_SECONDS = 0.2
ATTEMPTS = 20
SCREEN = "1400x1000x24"


class NotShown(Exception):
    pass


class Display:
    """Xvfb. Programs that are started meanwhile appear on it and tell of their widgets."""

    def __enter__(self):
        reader, writer = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", SCREEN, "-nolisten", "tcp"],
            pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as number:
            self.name = f":{number.readline().strip()}"
        os.environ.update(DISPLAY=self.name, GTK_MODULES="gail:atk-bridge", LC_ALL="C.UTF-8",
                          GDK_BACKEND="x11")
        return self

    def __exit__(self, *_):
        self.server.terminate()
        self.server.wait()

    def screenshot(self, path):
        ImageGrab.grab(xdisplay=self.name).save(path)


def steadily(look):
    """What look() gives; it looks again where a widget goes while it does."""
    for _ in range(ATTEMPTS):
        try:
            return look()
        except GLib.Error:
            time.sleep(POLL_SECONDS)
    return look()


def wait_until(found, what, seconds=SHOWN_SECONDS):
    """What found() gives, once that is something."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        try:
            if result := found():
                return result
        except GLib.Error:
            pass  # a widget that has just gone
        time.sleep(POLL_SECONDS)
    raise NotShown(f"{what}: not within {seconds} s")


def has(widget, *states):
    held = widget.get_state_set()
    return all(held.contains(getattr(Atspi.StateType, state)) for state in states)


def descendants(widget):
    for number in range(widget.get_child_count()):
        if child := widget.get_child_at_index(number):
            yield child
            yield from descendants(child)


class Program:
    """A program on the display, by the name under which it tells of itself."""

    def __init__(self, name):
        self.name = name

    def widgets(self):
        desktop = Atspi.get_desktop(0)
        for number in range(desktop.get_child_count()):
            program = desktop.get_child_at_index(number)
            if program and program.get_name() == self.name:
                yield from descendants(program)

    def shown(self, role):
        return steadily(lambda: [widget for widget in self.widgets()
                                 if widget.get_role_name() == role and has(widget, "SHOWING")])

    def look_for(self, role, name=None):
        """The widget of that role that can be used, or None. name: of the widget, any without."""
        return steadily(lambda: next(
            (widget for widget in self.shown(role)
             if name in (None, widget.get_name()) and has(widget, "SENSITIVE")), None))

    def find(self, role, name=None, seconds=SHOWN_SECONDS):
        return wait_until(lambda: self.look_for(role, name), f"{role} {name!r}", seconds)

    def click(self, role, name=None, seconds=SHOWN_SECONDS):
        steadily(lambda: click(self.find(role, name, seconds)))


def press(widget):
    """For what is not on the screen or moves. It does not return before a dialog is over."""
    Atspi.Action.do_action(widget, 0)


def area_of(widget):
    """(left, top, right, bottom) on the screen."""
    area = Atspi.Component.get_extents(widget, Atspi.CoordType.SCREEN)
    return area.x, area.y, area.x + area.width, area.y + area.height


def point_at(widget):
    """Keys go to the window with the pointer."""
    left, top, right, bottom = area_of(widget)
    subprocess.run(["xdotool", "mousemove", str((left + right) // 2), str((top + bottom) // 2)],
                   check=True)


def click(widget):
    point_at(widget)
    subprocess.run(["xdotool", "click", "1"], check=True)


def choices_of(combo):
    return [widget.get_name() for widget in descendants(combo)
            if widget.get_role_name() == "menu item"]


def choose(combo, name):
    for widget in descendants(combo):
        if widget.get_role_name() == "menu item" and widget.get_name() == name:
            press(widget)
            return
    raise NotShown(f"{name}: not among {choices_of(combo)}")


def type_into(entry, text):
    Atspi.EditableText.set_text_contents(entry, text)


def set_number(spin_button, number):
    Atspi.Value.set_current_value(spin_button, number)


def send_keys(*keys):
    subprocess.run(["xdotool", "key", "--clearmodifiers", *keys], check=True)
