"""Bad files and devices: the status, the log line that names the culprit, and that the next
attempt is unharmed."""

import os
from pathlib import Path

import simulation

PRELOADS = Path(os.environ["SCAN_PRELOAD_DIR"])

# Model, fault, the status of each step that is reached, what brings the device back.
FAULTS = [
    ("flatbed-326", "claim: busy", "open=0 start=0 read=5", []),
    ("flatbed-326", "claim 1: held", "open=0 start=0 read=5", []),
    ("flatbed-326,kernel-driver=yes", "detach: refuse", "open=0 start=9", []),
    ("flatbed-326", "set-configuration: refuse 1", "open=0 start=0 read=5", []),
    ("flatbed-326", "string: stall", "open=0 start=0 read=5", []),
    ("flatbed-326", "command properties: stall", "open=0 start=9", []),
    ("flatbed-326", "command lock: stall", "open=0 start=9", []),
    ("flatbed-326", "command start: unplug", "open=0 start=9", ["device 1: plug"]),
    ("flatbed-326", "reply properties: garbage 512", "open=0 start=0 read=5", []),
    ("flatbed-326", "reply properties: truncate 9", "open=0 start=0 read=5", []),
    ("flatbed-326", "reply lock: status 129", "open=0 start=4", []),
    ("flatbed-326", "reply lock: status 130", "open=0 start=3", []),
    ("flatbed-326", "reply lock: status 131", "open=0 start=3", []),
    ("flatbed-326", "reply lock: status 132", "open=0 start=9", []),
    ("flatbed-326", "reply lock: status 136", "open=0 start=3", []),
    ("flatbed-326", "reply lock: status 137", "open=0 start=10", []),
    ("flatbed-326", "reply lock: stray 300", "open=0 start=0 read=5", []),
    ("flatbed-326", "reply start: status 129", "open=0 start=4", []),
    ("flatbed-326", "reply start: status 134", "open=0 start=9", []),
    ("flatbed-326", "reply start: status 136", "open=0 start=4", []),
    ("flatbed-326", "block 2: unplug", "open=0 start=0 read=9", ["device 1: plug"]),
    ("flatbed-326", "block 2: replug", "open=0 start=0 read=9", []),
    ("flatbed-326", "block 2: stall", "open=0 start=0 read=9", ["device 1: replug"]),
    ("flatbed-326", "block 2: zero", "open=0 start=0 read=9", ["device 1: replug"]),
    ("flatbed-326", "block 2: jam", "open=0 start=0 read=6", []),
    ("flatbed-326", "end: unplug", "open=0 start=0 read=9", ["device 1: plug"]),
    ("flatbed-326", "release: unplug", "open=0 start=0 read=5", ["device 1: plug"]),
    ("flatbed-326", "release: refuse", "open=0 start=0 read=5", []),
    ("flatbed-326", "reply lock: timeout", "open=0 start=9", ["device 1: replug"]),
    ("flatbed-326", "reply start: timeout", "open=0 start=9", ["device 1: replug"]),
    ("flatbed-326", "block 2: timeout", "open=0 start=0 read=9", ["device 1: replug"]),
    ("adf-402", "reply wake: timeout", "open=9", ["device 1: replug"]),
]


class Failures(simulation.ScanTestCase):
    def logging(self):
        """For env: the log goes to log.txt."""
        libraries = filter(None, [simulation.PRELOAD, str(PRELOADS / "syslog_to_file.so")])
        return ["ENABLE_SL_LOG=1", f"SYSLOG_FILE={self.folder}/log.txt",
                "LD_PRELOAD=" + ":".join(libraries)]

    def attempt(self, device, *arguments, preload=(), log=False):
        libraries = [simulation.PRELOAD] if simulation.PRELOAD else []
        environment = ["LD_PRELOAD=" + ":".join(map(str, libraries + list(preload)))]
        if log:
            environment += ["ENABLE_SL_LOG=1", f"SYSLOG_FILE={self.folder}/log.txt"]
        return self.simulate(
            [device], ["env", *environment, simulation.PYTHON,
                       str(simulation.INSIDE / "attempt.py"), *arguments],
            options=["--tolerate"])

    def check_fault(self, model, fault, steps, recovery):
        result = self.attempt([model + ",block-size=4096", "--fault", fault], "first",
                              *steps.split(), *recovery, preload=[PRELOADS / "fast_clock.so"])
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
        page = simulation.read_pnm(result.recorded()[-1])[3]
        self.assertTrue((self.folder / "page.bin").read_bytes() == page)

    def test_faults_of_the_device(self):
        for model, fault, steps, recovery in FAULTS:
            with self.subTest(model=model, fault=fault):
                self.check_fault(model, fault, steps, recovery)

    def test_unknown_device(self):
        result = self.attempt("flatbed-326", "QuillonLegacy_1_0_0:libusb/007/042", "open=1",
                              preload=[PRELOADS / "syslog_to_file.so"], log=True)
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
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
