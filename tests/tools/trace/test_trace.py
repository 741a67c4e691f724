#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Captures of whole scans: recorded by scanner-sim, read by scanlib-trace, and played again, where
the same front end has to get the same page."""

import os
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parents[1] / "scan"))
import simulation  # pylint: disable=wrong-import-position

TRACE = os.environ["SCANLIB_TRACE"]
SAMPLES = HERE / "samples"
PROTOCOLS = {"flatbed-326": 326, "combo-326": 326, "combo-401": 401, "adf-401": 401,
             "adf-402": 402, "lut-402": 402, "wicket-402": 402}
SMALL = ["--resolution", "75", "-x", "60", "-y", "50"]
SAMPLE_PAGE = ["--resolution", "75", "-x", "26", "-y", "26", "--mode", "8-bit Grayscale"]


class TraceTestCase(simulation.ScanTestCase):
    def trace(self, *arguments, status=0):
        result = subprocess.run([TRACE, *map(str, arguments)], capture_output=True, text=True,
                                timeout=60, check=False)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return result

    def scan_into(self, page, device, arguments, options=()):
        result = self.simulate([device], ["scanimage", "--format=pnm", *arguments, "-o", page],
                               options)
        return result, self.folder / page

    def scanned(self, page, device, arguments, options=()):
        result, path = self.scan_into(page, device, arguments, options)
        self.assertEqual(result.status, 0, result.stderr)
        return path.read_bytes()


class Usb(TraceTestCase):
    def capture(self, model, name="usb"):
        page = self.scanned("page.pnm", model, SMALL, ["--capture", f"{name}.pcap"])
        self.trace("--save", self.folder / f"{name}.capture", self.folder / f"{name}.pcap")
        return page

    def test_every_model_is_read_and_played_again(self):
        for model, protocol in PROTOCOLS.items():
            with self.subTest(model=model):
                page = self.capture(model)
                text = self.trace(self.folder / "usb.pcap").stdout
                self.assertIn(f"USB device 2 on bus 1, protocol {protocol}\n", text)
                self.assertIn("control get descriptor", text)
                self.assertIn("width                    177 pixels\n", text)
                self.assertIn("record: page marker (9)\n", text)
                self.assertIn("record: end of the page (1)\n", text)
                self.assertIn("  host     unlock", text)
                played = self.scanned("again.pnm", f"{model},replay=usb.capture", SMALL)
                self.assertTrue(played == page)

    def test_a_capture_of_usb_is_played_over_the_network(self):
        page = self.capture("adf-402")
        played = self.scanned("again.pnm", ["--net", "adf-402,replay=usb.capture"], SMALL)
        self.assertTrue(played == page)

    def test_another_host_is_complained_about(self):
        self.capture("combo-401")
        device = "combo-401,replay=usb.capture"
        result, _ = self.scan_into("other.pnm", device,
                                   ["--resolution", "150", "-x", "60", "-y", "50"])
        self.assertEqual(result.status, 99)
        self.assertIn("COMPLAINT: dev1-combo-401: replay: lock: width: 354 pixels instead of 177"
                      " pixels\n", result.stderr)
        result = self.simulate([device], ["scanimage", "-A"])
        self.assertEqual(result.status, 99)
        self.assertIn("replay: the host has stopped, 4 commands of the capture before its end",
                      result.stderr)

    def test_redacted_captures_have_no_image(self):
        page = self.capture("combo-401")
        self.trace("--redact", "--save", self.folder / "usb.capture", self.folder / "usb.pcap")
        played = self.scanned("blank.pnm", "combo-401,replay=usb.capture", SMALL)
        self.assertEqual(len(played), len(page))
        self.assertEqual(set(simulation.read_pnm(self.folder / "blank.pnm")[3]), {0xFF})
        self.assertGreater(len(set(simulation.read_pnm(self.folder / "page.pnm")[3])), 2)

    def test_a_fault_is_shown(self):
        result = self.simulate(["combo-401,fault=block 1: jam"],
                               ["scanimage", *SMALL, "--format=pnm", "-o", "page.pnm"],
                               ["--capture", "jam.pcap", "--tolerate"])
        self.assertNotEqual(result.status, 0)
        self.assertIn("record: paper jam (5)\n", self.trace(self.folder / "jam.pcap").stdout)


class Log(TraceTestCase):
    def test_a_log_is_read_and_played_with_a_white_page(self):
        preload = os.environ["SCAN_PRELOAD_DIR"] + "/syslog_to_file.so"
        for model in ["flatbed-326", "combo-401", "adf-402"]:
            with self.subTest(model=model):
                log = self.folder / f"{model}.log"
                libraries = ":".join(filter(None, [simulation.PRELOAD, preload]))
                result = self.simulate(
                    [model], ["env", "ENABLE_SL_LOG=1", "ENABLE_SL_DUMP=1",
                              f"LD_PRELOAD={libraries}", f"SYSLOG_FILE={log}", "scanimage",
                              "--format=pnm", *SMALL, "-o", "page.pnm"])
                self.assertEqual(result.status, 0, result.stderr)
                text = self.trace(log).stdout
                self.assertIn(f"protocol {PROTOCOLS[model]}, without times\n", text)
                self.assertIn("record: page marker (9)\n", text)
                saved = self.trace("--save", self.folder / "log.capture", log)
                self.assertIn("bytes were not recorded; white ones take their place",
                              saved.stderr)
                played = self.scanned("white.pnm", f"{model},replay=log.capture", SMALL)
                page = (self.folder / "page.pnm").read_bytes()
                self.assertEqual(len(played), len(page))
                self.assertGreater(played.count(0xFF), len(page) * 0.9)


class Network(TraceTestCase):
    def devices(self, suffix=""):
        return [["--net", f"{model},frame-size=random:{n}{suffix.format(n=n)}"]
                for n, model in enumerate(PROTOCOLS, 1)]

    def pages(self, name, devices, options=()):
        arguments = [simulation.PYTHON, str(simulation.INSIDE / "every_page.py"),
                     str(len(PROTOCOLS)), "1=Flatbed", "2=Flatbed",
                     "4=Automatic Document Feeder"]
        folder = self.subfolder(name)
        for file in self.folder.glob("*.capture"):
            (folder / file.name).write_bytes(file.read_bytes())
        result = self.simulate(devices, arguments, options, folder=folder)
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
        return {page.name: page.read_bytes() for page in result.pages("*.raw")}

    def test_every_model_is_read_and_played_again(self):
        recording = self.folder / "net.pcap"
        pages = self.pages("first", self.devices(), ["--capture", str(recording)])
        self.assertGreater(len(pages), len(PROTOCOLS))
        text = self.trace("--only", 1, recording).stdout
        searches = text.count("search for scanners: _host-config._udp.local type 33\n")
        self.assertGreater(searches, 0)
        self.assertEqual(text.count("answer to a search:"), len(PROTOCOLS) * searches)
        for n, (model, protocol) in enumerate(PROTOCOLS.items(), 1):
            # The first conversation is the search.
            text = self.trace("--only", n + 1, recording).stdout
            self.assertIn(f"scanner 10.83.0.{10 + n}, protocol {protocol}\n", text, model)
            self.assertIn("host greets the scanner (HBN3 tickle)\n", text)
            self.trace("--only", n + 1, "--save", self.folder / f"{n}.capture", recording)
        again = self.pages("again", self.devices(",replay={n}.capture"))
        self.assertEqual(pages.keys(), again.keys())
        for name, page in pages.items():
            self.assertTrue(again[name] == page, name)


class Samples(TraceTestCase):
    """A user's capture becomes a test: the sample, and the page that came of it."""

    def test_usb(self):
        (self.folder / "saved").write_bytes((SAMPLES / "usb-401.capture").read_bytes())
        played = self.scanned("page.pnm", "combo-401,replay=saved", SAMPLE_PAGE)
        expected = self.scanned("expected.pnm", "combo-401", SAMPLE_PAGE)
        self.assertTrue(played == expected)

    def test_what_cannot_be_read_is_refused(self):
        for arguments in [["/nonexistent"], [], ["--only", "9", SAMPLES / "usb-401.pcap"],
                          ["--nonsense", "x"]]:
            self.trace(*arguments, status=2)

    def test_output_that_cannot_be_written_is_no_success(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([TRACE, SAMPLES / "usb-401.capture"], stdout=full,
                                    stderr=subprocess.PIPE, text=True, timeout=60, check=False)
        self.assertEqual(result.returncode, 2)
        self.assertIn("could not be written", result.stderr)

    def test_odd_recordings_tell_by_the_exit_status(self):
        cut = self.folder / "cut.pcap"
        cut.write_bytes((SAMPLES / "usb-401.pcap").read_bytes()[:-100])
        self.assertIn("ODD: the recording breaks off", self.trace(cut, status=1).stdout)


if __name__ == "__main__":
    simulation.main()
