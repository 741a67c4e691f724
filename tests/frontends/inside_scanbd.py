# SPDX-License-Identifier: LGPL-2.1-or-later
"""scanbd on the first simulated scanner: polls it, lends it to scanbm for so many pages, looks for
it again, releases it for a page without scanbm, and ends. Arguments: the folder of the package's
files, and the number of pages."""

import grp
import os
import pwd
import re
import signal
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path

PACKAGE = Path(sys.argv[1])
PAGES = int(sys.argv[2])
DEVICE = "QuillonLegacy_1_0_0:libusb/001/002"
SERVER = Path(os.environ["SANE_CONFIG_DIR"])
CLIENT = SERVER / "client"
CONFIGURATION = SERVER / "scanbd.conf"
SANE_PORT = 6566
DAEMON = str(PACKAGE / "usr/sbin/scanbd")
WAIT_SECONDS = 30


def configure():
    CLIENT.mkdir()
    (CLIENT / "dll.conf").write_text("net\n")
    (CLIENT / "net.conf").write_text("localhost\n")
    (SERVER / "saned.conf").write_text("localhost\n127.0.0.1\n")
    given = (PACKAGE / "etc/scanbd/scanbd.conf").read_text()
    for key, value in (("user", pwd.getpwuid(os.geteuid()).pw_name),
                       ("group", grp.getgrgid(os.getegid()).gr_name), ("debug-level", "7"),
                       ("pidfile", f'"{SERVER}/scanbd.pid"'), ("scriptdir", f"{SERVER}"),
                       ("saned_env", f'{{ "SANE_CONFIG_DIR={SERVER}" }}')):
        given, changed = re.subn(rf"(?m)^(\s*{key}\s*=).*$", rf"\1 {value}", given)
        assert changed, key
    # Sections for scanners of others.
    CONFIGURATION.write_text(re.sub(r"(?m)^include\(.*\)$", "", given))
    # What would run if a key were pressed.
    (SERVER / "test.script").write_text("#!/bin/sh\necho pressed > pressed\n")
    (SERVER / "test.script").chmod(0o755)


def serve():
    """What inetd does for scanbm."""
    listener = socket.create_server(("127.0.0.1", SANE_PORT))

    def accept():
        while True:
            client, _ = listener.accept()
            with client, open("scanbm.log", "a") as log:
                subprocess.run([DAEMON, "-m", "-f", "-c", str(CONFIGURATION)], stdin=client,
                               stdout=client, stderr=log, check=False)
    threading.Thread(target=accept, daemon=True).start()


def wait_until(condition, what):
    end = time.monotonic() + WAIT_SECONDS
    while not condition():
        assert time.monotonic() < end, f"{what}: not within {WAIT_SECONDS} s"
        time.sleep(0.1)


class Daemon:
    def __init__(self):
        self.log = Path("scanbd.log")
        with open(self.log, "w") as log:
            self.process = subprocess.Popen([DAEMON, "-f", "-c", str(CONFIGURATION)], stdout=log,
                                            stderr=log)

    def polls(self):
        return self.log.read_text().count("polling device " + DEVICE)

    def wait_for_polls(self):
        """Two more: the first may have begun before."""
        before = self.polls()
        wait_until(lambda: self.polls() >= before + 2, "polling")

    def descriptors(self):
        return sorted(os.readlink(entry).split("[")[0]
                      for entry in Path(f"/proc/{self.process.pid}/fd").iterdir())

    def has_scanner(self):
        return any(name.endswith("/usb/001/002") for name in self.descriptors())


def scan(name, device, environment):
    subprocess.run(["scanimage", "-d", device, "--resolution", "75", "--format=png", "-o", name],
                   check=True, env=environment)


def main():
    configure()
    serve()
    daemon = Daemon()
    daemon.wait_for_polls()
    open_files = daemon.descriptors()
    assert daemon.has_scanner(), open_files

    client = dict(os.environ, SANE_CONFIG_DIR=str(CLIENT))
    listed = subprocess.run(["scanimage", "-L"], env=client, check=True, capture_output=True,
                            text=True).stdout
    assert f"device `net:localhost:{DEVICE}'" in listed, listed
    for number in range(PAGES):
        scan(f"through-{number}.png", f"net:localhost:{DEVICE}", client)
        wait_until(daemon.has_scanner, "the scanner back")
        daemon.wait_for_polls()
        assert daemon.descriptors() == open_files, (daemon.descriptors(), open_files)

    # It looks for scanners again, with the backend loaded anew.
    daemon.process.send_signal(signal.SIGHUP)
    wait_until(lambda: not daemon.has_scanner(), "the end of the first search")
    wait_until(daemon.has_scanner, "the scanner found again")
    daemon.wait_for_polls()
    assert daemon.descriptors() == open_files, (daemon.descriptors(), open_files)

    daemon.process.send_signal(signal.SIGUSR1)
    wait_until(lambda: not daemon.has_scanner(), "the release")
    scan("while-released.png", DEVICE, os.environ)
    daemon.process.send_signal(signal.SIGUSR2)
    daemon.wait_for_polls()

    daemon.process.terminate()
    status = daemon.process.wait(WAIT_SECONDS)
    assert status == 0, f"scanbd ended with status {status}"
    scan("without.png", DEVICE, os.environ)
    assert not Path("pressed").exists() and "trigger action" not in daemon.log.read_text()


main()
