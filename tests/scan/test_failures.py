# SPDX-License-Identifier: LGPL-2.1-or-later
"""Bad files, and devices that cannot be had: the log line that names the culprit, and what happens
to files. What devices do wrong while they are used is in test_faults.py."""

import os
from pathlib import Path

import simulation

PRELOADS = Path(os.environ["SCAN_PRELOAD_DIR"])


class Failures(simulation.ScanTestCase):
    def logging(self):
        """For env: the log goes to log.txt."""
        libraries = filter(None, [simulation.PRELOAD, str(PRELOADS / "syslog_to_file.so")])
        return ["ENABLE_SL_LOG=1", f"SYSLOG_FILE={self.folder}/log.txt",
                "LD_PRELOAD=" + ":".join(libraries)]

    def test_unknown_device(self):
        result = self.simulate(["flatbed-326"],
                               ["env", *self.logging(), "scanimage", "-d",
                                "QuillonLegacy_1_0_0:libusb/007/042", "-n"])
        self.assertIn("not supported", result.stderr)
        log = (self.folder / "log.txt").read_text(errors="replace")
        self.assertIn("no usb device 007:042", log)
        self.assertIn("[ERROR] Unsupported VID PID", log)

    def test_busy_device(self):
        for model in ["flatbed-326", "adf-402"]:
            with self.subTest(model=model):
                result = self.simulate(
                    [model], ["env", *self.logging(), simulation.PYTHON,
                              str(simulation.INSIDE / "busy.py")], options=["--tolerate"])
                self.assertEqual(result.status, 0, result.stdout + result.stderr)
                log = (self.folder / "log.txt").read_text(errors="replace")
                self.assertIn("[ERROR] usb device 001:002 is in use", log)

    def test_usb_is_listed_when_the_network_cannot_be_searched(self):
        holder = [simulation.PYTHON, str(simulation.INSIDE / "port_taken.py")]
        for before, line in [([], "[ERROR] sendto return an error"),
                             (holder, "[ERROR] broadcast errorr")]:
            with self.subTest(line=line):
                result = self.simulate(
                    ["flatbed-326"], [*before, "env", *self.logging(), "scanimage", "-L"])
                self.assertIn("libusb/001/002' is a Quillon Flatbed 326", result.stdout)
                log = (self.folder / "log.txt").read_text(errors="replace")
                self.assertIn(line, log)

    def test_node_that_may_only_be_read(self):
        result = self.simulate(["flatbed-326,read-only=yes"],
                               ["scanimage", "--resolution", "75"], options=["--tolerate"])
        self.assertEqual(result.status, 9, result.stderr)

    def test_bad_files(self):
        environment = []
        if simulation.PRELOAD:
            environment = [f"LD_PRELOAD={simulation.PRELOAD}"]
        result = self.simulate(["flatbed-326"],
                               ["env", *environment, simulation.PYTHON,
                                str(simulation.INSIDE / "bad_files.py")])
        self.assertEqual(result.status, 0, result.stdout + result.stderr)

    def test_log_names_the_file(self):
        for script, expected in [
                ("rm /etc/sane.d/Quillon*.conf",
                 ["Error opening configuration file.",
                  "/etc/sane.d/QuillonLegacy_1_0_0.conf: No such file or directory"]),
                ("sed -i 's#[^ ]*flatbed-326.ini#/nowhere/none.ini#' /etc/sane.d/Quillon*.conf",
                 ["[ERROR] The file /nowhere/none.ini does not exist. 2; No such file"])]:
            self.simulate(["flatbed-326"],
                          ["sh", "-c", f"{script}; env {' '.join(self.logging())} scanimage "
                           "-d QuillonLegacy_1_0_0:libusb/001/002 -n"])
            log = (self.folder / "log.txt").read_text(errors="replace")
            for line in expected:
                self.assertIn(line, log)

    def test_marker_of_an_edited_size(self):
        # The marker is never made through a link that lies in its place.
        for setting, link, exists in [("1", False, True), ("0", False, False), ("1", True, False)]:
            with self.subTest(setting=setting, link=link):
                target = self.folder / "target"
                lay = f"ln -s {target} /tmp/scan_problem.dump;" if link else ""
                check = "test -f /tmp/scan_problem.dump && ! test -L /tmp/scan_problem.dump"
                result = self.simulate(
                    ["combo-326"],
                    ["sh", "-c", f"{lay} SCAN_DEVICE_WITH_EDITS={setting} scanimage --resolution "
                     f"75 -y 30 > /dev/null; {check}"], options=["--private-tmp"])
                self.assertEqual(result.status == 0, exists, result.stderr)
                self.assertFalse(target.exists())

    def test_dump_file_is_not_opened_through_a_link(self):
        target = self.folder / "target"
        result = self.simulate(
            ["flatbed-326"],
            ["sh", "-c", f"ln -s {target} /tmp/scan.dump; scanimage --resolution 75 -y 30 "
             "> /dev/null"], options=["--private-tmp"])
        self.assertEqual(result.status, 0, result.stderr)
        self.assertFalse(target.exists())
        result = self.simulate(
            ["flatbed-326"],
            ["sh", "-c", "umask 0; scanimage --resolution 75 -y 30 > /dev/null; "
             "stat -c %a /tmp/scan.dump"], options=["--private-tmp"])
        self.assertEqual(result.stdout.strip(), "600")


if __name__ == "__main__":
    simulation.main()
