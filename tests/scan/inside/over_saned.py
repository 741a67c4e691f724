# SPDX-License-Identifier: LGPL-2.1-or-later
"""saned and SANE's net backend between the front end and a scanner: a list, the self test, a batch
from the feeder, an interrupted page, and a page. Argument: the name of the device."""

import os
import signal
import subprocess
import sys
import time
from pathlib import Path

SERVER = Path(os.environ["SANE_CONFIG_DIR"])
CLIENT = SERVER / "client"
CLIENT.mkdir()
(CLIENT / "dll.conf").write_text("net\n")
(CLIENT / "net.conf").write_text("localhost\n")
(SERVER / "saned.conf").write_text("localhost\n127.0.0.1\n")

SANE_PORT = 6566


def await_server():
    """Until it listens: a connection for a trial would be one that it serves."""
    for _ in range(300):
        sockets = Path("/proc/net/tcp").read_text().split("\n")[1:-1]
        if any(line.split()[1].endswith(f":{SANE_PORT:04X}") and line.split()[3] == "0A"
               for line in sockets):
            return
        time.sleep(0.1)
    raise AssertionError("saned does not listen")


client = dict(os.environ, SANE_CONFIG_DIR=str(CLIENT))
NAME = f"net:localhost:{sys.argv[1]}"
scan = ["scanimage", "-d", NAME, "--format=pnm", "--resolution", "75"]
server_output = open("saned.log", "w")
# Without a system bus it cannot have itself announced on the machine's own network.
server = subprocess.Popen(["saned", "-l", "-e", "-b", "127.0.0.1"], stderr=server_output,
                          start_new_session=True,
                          env=dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS="unix:path=/nonexistent"))
try:
    await_server()
    listed = subprocess.run(["scanimage", "-L"], env=client, check=True, capture_output=True,
                            text=True).stdout
    assert f"device `{NAME}' is a Quillon Combo 402 Scanner" in listed, listed
    check = subprocess.run(["scanimage", "-d", NAME, "-T"], env=client, check=True,
                           capture_output=True, text=True).stderr
    assert "PASS" in check and "FAIL" not in check, check
    # In one process, because each has to wait for the search.
    subprocess.run(scan + ["--batch=page%d.pnm", "--batch-count=3", "--source",
                           "Automatic Document Feeder", "-y", "60"], env=client, check=True)
    process = subprocess.Popen(scan + ["-p", "-o", "interrupted.pnm"], env=client, text=True,
                               stderr=subprocess.PIPE)
    seen = ""
    while "%" not in seen:
        seen += process.stderr.read(1)
    began = time.monotonic()
    process.send_signal(signal.SIGINT)
    rest = process.stderr.read()
    status = process.wait(30)
    print(f"interrupted: {time.monotonic() - began:.2f} s, status {status}")
    assert status != 0 and "trying to stop scanner" in rest, (status, rest)
    subprocess.run(scan + ["-o", "page4.pnm", "-y", "60"], env=client, check=True)
finally:
    # With its announcer, which does not always get over the fork; and its handlers of milder signals
    # do more than a sanitizer allows.
    os.killpg(server.pid, signal.SIGKILL)
    server.wait()
