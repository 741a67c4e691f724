# SPDX-License-Identifier: LGPL-2.1-or-later
"""Runs scanlib-check as a user does, on simulated scanners."""

import json
import os
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scan"))
import simulation  # noqa: E402

CHECK = os.environ["SCANLIB_CHECK"]
CONFIG_FOLDER = Path(os.environ["CONFIG_FOLDER"])
SOURCES = Path(__file__).resolve().parents[3] / "config"
BACKENDS = ["QuillonLegacy_1_0_0", "Oxle09"]
BOTH = ["flatbed-326", "wicket-402"]
CONF = "/etc/sane.d/QuillonLegacy_1_0_0.conf"

# Takes UDP port 5353, then runs a command.
HOLD = """
import socket, subprocess, sys
port = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
if sys.argv[1] == "shared":
    port.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
port.bind(("", 5353))
sys.exit(subprocess.run(sys.argv[2:]).returncode)
"""
# Opens a device file, then runs a command.
OPEN = """
import os, subprocess, sys
device = os.open(sys.argv[1], os.O_RDWR)
sys.exit(subprocess.run(sys.argv[2:]).returncode)
"""


class CheckTestCase(simulation.ScanTestCase):
    def check(self, devices, *arguments, before="true", wrapper=()):
        """A run inside the simulation; before: a script that spoils something."""
        script = f"{before} && exec \"$@\""
        return self.simulate(devices, ["sh", "-c", script, "sh", *wrapper, CHECK, *arguments])

    def report(self, devices, *arguments, **keys):
        result = self.check(devices, "--json", *arguments, **keys)
        try:
            report = json.loads(result.stdout)
        except ValueError:
            self.fail(result.stdout + result.stderr)
        self.assertEqual(report["status"], result.status)
        return report

    def findings(self, devices, *arguments, **keys):
        """(severity, file, line, code) of each."""
        report = self.report(devices, *arguments, **keys)
        return [(f["severity"], f["file"], f["line"], f["code"]) for f in report["findings"]]

    def alone(self, *arguments):
        """A run without simulation, of files only."""
        return subprocess.run([CHECK, "--no-usb", "--no-network", *arguments], check=False,
                              capture_output=True, text=True, timeout=60)

    def write(self, name, text):
        path = self.folder / name
        path.write_bytes(text.encode() if isinstance(text, str) else text)
        return str(path)


class Shipped(CheckTestCase):
    def test_nothing_is_wrong(self):
        result = self.check([*BOTH, ["--net", "adf-402"]])
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
        self.assertIn("Nothing is wrong.", result.stdout)
        self.assertIn("Ready on USB: Quillon Flatbed 326 (1234:3260, usb 001:002).", result.stdout)
        self.assertNotIn("\033", result.stdout)

    def test_quiet_says_nothing(self):
        result = self.check(BOTH, "--quiet")
        self.assertEqual((result.status, result.stdout), (0, ""), result.stderr)

    def test_json(self):
        report = self.report(BOTH)
        self.assertEqual((report["program"], report["format"]), ("scanlib-check", 1))
        self.assertEqual(report["errors"] + report["warnings"], 0)
        shipped = [(SOURCES / f"{backend}.conf.in").read_text().count("\nusb ")
                   for backend in BACKENDS]
        self.assertEqual([len(c["models"]) for c in report["configurations"]], shipped)
        self.assertEqual(len(report["features"]), sum(shipped))
        self.assertEqual([(d["vendor"], d["product"], d["ready"]) for d in report["devices"]],
                         [("1234", "3260", True), ("4321", "4022", True)])
        self.assertIsNone(report["discovered"])
        self.assertEqual(report["port"]["number"], 5353)

    def test_feature_values_are_those_of_the_file(self):
        for file in self.report(BOTH)["features"]:
            values = {v["key"]: v["value"] for v in file["values"]}
            lines = [line.split("=", 1) for line in Path(file["file"]).read_text().splitlines()
                     if "=" in line and not line.startswith("#")]
            self.assertEqual({k: str(v) for k, v in lines},
                             {k: v if isinstance(v, str) else dict(lines)[k]
                              for k, v in values.items()})
            for key, text in lines:
                if not isinstance(values[key], str):
                    self.assertEqual(values[key], float(text))


class Installation(CheckTestCase):
    def test_backend_not_listed(self):
        self.assertIn(("warning", "SANE", None, "backend-not-listed"),
                      self.findings(["flatbed-326"], "--no-network"))

    def test_list_in_dll_d(self):
        before = "mkdir /etc/sane.d/dll.d && echo Oxle09 > /etc/sane.d/dll.d/scanlib"
        self.assertEqual(self.report(["flatbed-326"], "--no-network", before=before)["status"], 0)

    def test_no_configuration_no_modules(self):
        found = self.findings(BOTH, "--no-network", before=f"rm {CONF}",
                              wrapper=["env", "-u", "LD_LIBRARY_PATH"])
        self.assertIn(("error", CONF, None, "file-missing"), found)
        self.assertEqual(found.count(("error", "SANE", None, "module-missing")), 2)

    def test_environment(self):
        wrapper = ["env", "ENABLE_SL_LOG=yes", "ENABLE_INFO_LOG=1"]
        report = self.report(BOTH, "--no-network", wrapper=wrapper)
        codes = [f["code"] for f in report["findings"]]
        self.assertIn("log-switch-without-effect", codes)
        self.assertIn("log-on", codes)
        self.assertIn("config-dir-set", codes)
        self.assertEqual(report["environment"]["ENABLE_SL_LOG"], "yes")
        self.assertIsNone(report["environment"]["ENABLE_SL_DUMP"])


class Usb(CheckTestCase):
    def test_no_permission(self):
        result = self.check(["flatbed-326,read-only=yes", "wicket-402"])
        self.assertEqual(result.status, 2, result.stdout)
        self.assertRegex(result.stdout, r"usb 001:002: error: 1234:3260 '.*': you may not write to "
                         r"its device file .*/001/002 \(owner root, group root, mode 0444\)")
        # The backend agrees.
        scan = self.simulate(["flatbed-326,read-only=yes"],
                             ["scanimage", "-d", "QuillonLegacy_1_0_0:libusb/001/002",
                              "-o", "page.pnm"])
        self.assertNotEqual(scan.status, 0)

    def test_line_that_would_name_a_scanner(self):
        before = f"sed -i /0x3260/d {CONF}"
        report = self.report(BOTH, "--no-network", before=before)
        self.assertEqual(report["status"], 1)
        message = next(f["message"] for f in report["findings"]
                       if f["code"] == "usb-not-configured")
        line = message.split("this line would: ")[1]
        self.assertFalse(report["devices"][0]["configured"])
        # It does.
        cured = self.report(BOTH, "--no-network", before=f"{before} && echo '{line}' >> {CONF}")
        self.assertEqual(cured["status"], 0)
        self.assertTrue(cured["devices"][0]["ready"])
        listed = self.simulate(BOTH, ["sh", "-c", f"{before}; echo '{line}' >> {CONF}; scanimage -L"])
        self.assertIn("QuillonLegacy_1_0_0:libusb/001/002", listed.stdout)

    def test_no_interface_of_a_scanner(self):
        self.assertIn(("error", "usb 001:002", None, "usb-no-interface"),
                      self.findings(["flatbed-326,interfaces=0x03 0x81 0x02", "wicket-402"],
                                    "--no-network"))

    def test_in_use(self):
        wrapper = [simulation.PYTHON, "-c", OPEN, "/etc/sane.d/simulated/usb/001/002"]
        report = self.report(BOTH, "--no-network", wrapper=wrapper)
        message = next(f["message"] for f in report["findings"] if f["code"] == "usb-in-use")
        self.assertIn("1234:3260", message)
        self.assertIn("is in use by 'python3", message)
        holders = report["devices"][0]["holders"]
        self.assertEqual(len(holders), 1)
        self.assertGreater(holders[0]["process"], 0)

    def test_another_makers_device(self):
        found = self.findings([*BOTH, "adf-402,vendor-id=0x77,vendor=Else,product=Thing"],
                              "--no-network", before="sed -i /0x0077/d /etc/sane.d/*.conf")
        self.assertIn(("note", "usb 001:004", None, "usb-other-device"), found)

    def test_hostile_strings(self):
        result = self.check(["flatbed-326,product=\033]0;x\007\033[31m", "wicket-402"])
        self.assertNotIn("\033", result.stdout)
        self.assertIn("\\x1b]0;x\\x07", result.stdout)


class Network(CheckTestCase):
    # The answering scanners share the port themselves; without them nobody does.
    devices = BOTH

    def held(self, how):
        return [simulation.PYTHON, "-c", HOLD, how]

    def test_port_taken(self):
        report = self.report(self.devices, wrapper=self.held("alone"))
        self.assertEqual(report["status"], 1)
        message = next(f["message"] for f in report["findings"] if f["code"] == "port-taken")
        self.assertIn("'python3", message)
        self.assertFalse(report["port"]["usable"])
        self.assertTrue(any("python3" in h["program"] for h in report["port"]["holders"]))

    def test_port_shared(self):
        report = self.report(self.devices, wrapper=self.held("shared"))
        self.assertEqual(report["status"], 0)
        message = next(f["message"] for f in report["findings"] if f["code"] == "port-shared")
        self.assertIn("'python3", message)
        self.assertTrue(report["port"]["usable"])

    def test_no_route(self):
        self.assertIn(("note", "network", None, "no-route"), self.findings(BOTH))
        self.assertIn(("error", "network", None, "no-route"), self.findings(BOTH, "--discover"))

    def test_discovery(self):
        devices = [["--net", "adf-402"], ["--net", "combo-401,product-id=0x99"],
                   ["--net", "wicket-402"]]
        report = self.report(devices, "--discover", before="sed -i /0x0099/d /etc/sane.d/*.conf")
        self.assertEqual(report["status"], 1)
        self.assertEqual(sorted((d["product"], d["address"], d["configured"])
                                for d in report["discovered"]),
                         [("0099", "10.83.0.12", False), ("4020", "10.83.0.11", True),
                          ("4022", "10.83.0.13", True)])
        lines = [d["line"] for d in report["discovered"] if not d["configured"]]
        self.assertRegex(lines[0], r"^usb 0x1234 0x0099 /\S+\.ini \S+$")

    def test_discovery_when_the_port_is_taken(self):
        found = self.findings(self.devices, "--discover", wrapper=self.held("alone"))
        self.assertIn(("error", "network", None, "port-taken"), found)
        self.assertIn(("error", "network", None, "search-failed"), found)


class Files(CheckTestCase):
    def test_configuration(self):
        features = self.write("a.ini", "")
        conf = self.write("a.conf", f"# c\nUSB 1 2 {features} X\nusb 1 2 {features} X # c\n"
                          f"usb 1 2 {features} Y\nusb 1 3 none.ini Z\nusb 1 4 {features}\n")
        result = self.alone("--config", conf)
        self.assertEqual(result.returncode, 2)
        lines = [line for line in result.stdout.splitlines() if line.startswith(conf)]
        for line, (number, severity, code) in zip(lines, [
                (2, "error", "wrong-word"), (3, "note", "text-behind-name"),
                (4, "warning", "duplicate-ids"), (5, "error", "feature-path-relative"),
                (6, "error", "too-few-fields")]):
            self.assertTrue(line.startswith(f"{conf}:{number}: {severity}: "), line)
            self.assertTrue(line.endswith(f"[{code}]"), line)

    def test_features(self):
        path = self.write("a.ini", "[INTEGERS]\nCOMMANDVERSION=400\nCOMPRESION=1\nPREVIEW = 1\n"
                          "[DOUBLE]\nTOPLEFTX=1\n[STRINGS]\nCURRENTDPI=300\n")
        result = self.alone("--json", "--features", path)
        self.assertEqual(result.returncode, 2)
        report = json.loads(result.stdout)
        found = [(f["line"], f["code"]) for f in report["findings"] if f["line"]]
        self.assertEqual(found, [(2, "value-not-allowed"), (3, "misspelt-key"), (4, "blank-in-key"),
                                 (5, "unknown-section"), (6, "wrong-section"),
                                 (8, "wrong-section")])
        self.assertEqual(report["features"][0]["skipped"], [5])
        self.assertEqual({f["file"] for f in report["findings"] if f["line"]}, {path})

    def test_only_warnings(self):
        path = self.write("a.ini", Path(self.shipped("combo-401.ini")).read_text() + "X_Y_Z=1\n")
        result = self.alone("--quiet", "--features", path)
        self.assertEqual(result.returncode, 1, result.stdout)
        self.assertEqual(len(result.stdout.splitlines()), 1)
        self.assertIn("[wrong", result.stdout.replace("unknown-key", "wrong"))

    def shipped(self, name):
        line = next(line for line in (CONFIG_FOLDER / "QuillonLegacy_1_0_0.conf").read_text()
                    .splitlines() if line.startswith("usb") and name in line)
        return line.split()[3]

    def test_hostile_files(self):
        for number, data in enumerate([b"\033[2J\n" * 10, b"\0" * 5000, b"usb " * 5000,
                                       bytes(range(256)) * 40, b"\xff\xfe[INTEGERS]\n=\n==\n"]):
            path = self.write(f"hostile{number}", data)
            for option in ["--config", "--features"]:
                for form in [[], ["--json"]]:
                    result = self.alone(*form, option, path)
                    self.assertIn(result.returncode, (1, 2), result.stderr)
                    self.assertNotIn("\033", result.stdout)
                    if form:
                        json.loads(result.stdout)

    def test_what_is_no_file(self):
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        for path in [fifo, self.folder, "/dev/zero", self.folder / "none"]:
            self.assertEqual(self.alone("--config", str(path)).returncode, 2)
            self.assertEqual(self.alone("--features", str(path)).returncode, 2)

    def test_a_file_that_may_not_be_read(self):
        path = self.write("a.ini", "")
        conf = self.write("a.conf", f"usb 1 2 {path} X\n")
        os.chmod(path, 0)
        os.chmod(self.folder, 0o755)
        command = [CHECK, "--no-usb", "--no-network", "--json", "--config", conf]
        if os.geteuid() == 0:
            command = ["setpriv", "--reuid=65534", "--clear-groups", *command]
        result = subprocess.run(command, check=False, capture_output=True, text=True, timeout=60)
        codes = [f["code"] for f in json.loads(result.stdout)["findings"]]
        self.assertEqual(codes, ["feature-file-unreadable"])

    def test_usage(self):
        for arguments in [["--what"], ["--config"], ["x.conf"], ["--discover", "--no-network"]]:
            result = subprocess.run([CHECK, *arguments], check=False, capture_output=True,
                                    text=True, timeout=60)
            self.assertEqual((result.returncode, result.stdout), (64, ""))
            self.assertIn("scanlib-check: ", result.stderr)
        for option in ["--help", "--version"]:
            result = subprocess.run([CHECK, option], check=False, capture_output=True, text=True,
                                    timeout=60)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.assertIn("scanlib-check", result.stdout)


if __name__ == "__main__":
    simulation.main()
