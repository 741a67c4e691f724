# SPDX-License-Identifier: LGPL-2.1-or-later
"""Front ends: scanimage, python3-sane, and the plain C interface behind the dll loader."""

import pathlib
import subprocess
import unittest.mock

import simulation


class FrontEnds(simulation.ScanTestCase):
    def test_list(self):
        result = self.simulate(["flatbed-326", "adf-402", "lut-402"], ["scanimage", "-L"])
        self.assertEqual(result.status, 0, result.stderr)
        self.assertEqual(sorted(result.stdout.strip().splitlines()), [
            "device `Oxle09:libusb/001/004' is a Oxle Colour 402 Scanner",
            "device `QuillonLegacy_1_0_0:libusb/001/002' is a Quillon Flatbed 326 Scanner",
            "device `QuillonLegacy_1_0_0:libusb/001/003' is a Quillon Combo 402 Scanner",
        ])

    def test_options_as_listed(self):
        result = self.simulate(["adf-402"], ["scanimage", "-A"])
        self.assertEqual(result.status, 0, result.stderr)
        for line in ["--resolution 600|300|150|75dpi [300]",
                     "--mode 24-bit Color|8-bit Grayscale [24-bit Color]",
                     "--source Flatbed|Automatic Document Feeder [Flatbed]",
                     "--preview[=(yes|no)] [no]", "-x 0..215.9mm [215.9]"]:
            self.assertIn(line, result.stdout)

    def test_scanimage_self_test(self):
        for model in ["flatbed-326", "adf-402", "lut-402"]:
            result = self.simulate([model], ["scanimage", "-T"])
            self.assertEqual(result.status, 0, result.stderr)
            self.assertIn("PASS", result.stderr)
            self.assertNotIn("FAIL", result.stderr)

    def test_the_first_scanner_of_a_backend(self):
        # In place of a device's name: the backend's own, or none.
        for devices, name, first in [
                (["adf-402", "flatbed-326"], "QuillonLegacy_1_0_0", "dev1-adf-402-001.pnm"),
                (["flatbed-326", "lut-402"], "Oxle09", "dev2-lut-402-001.pnm"),
                (["lut-402"], "", "dev1-lut-402-001.pnm")]:
            result = self.simulate(devices, ["scanimage", "-d", name, "--resolution", "75", "-y",
                                             "30", "--format=pnm", "-o", "page.pnm"],
                                   folder=self.subfolder(first))
            self.assertEqual(result.status, 0, result.stderr)
            self.assertEqual([page.name for page in result.recorded()], [first])

    def test_no_first_scanner(self):
        result = self.simulate(["lut-402"], ["scanimage", "-d", "QuillonLegacy_1_0_0"])
        self.assertIn("QuillonLegacy_1_0_0 failed: Invalid argument", result.stderr)

    def test_the_first_scanner_at_any_time(self):
        self.run_inside(["adf-402", "flatbed-326"], "first_scanner.py")

    def test_saned(self):
        self.check_saned([f"adf-402,{simulation.SANED_KEYS}"],
                         "QuillonLegacy_1_0_0:libusb/001/002")

    def test_every_option(self):
        self.run_inside(["flatbed-326"], "options.py", "0")
        self.run_inside(["adf-402"], "options.py", "1")

    def test_python_sane(self):
        for model in ["flatbed-326", "combo-401", "adf-402"]:
            self.run_inside([model], "python_sane.py")

    def test_every_set_of_entry_points(self):
        module = pathlib.Path(simulation.SCANNER_SIM).parents[1] / "lib"
        self.run_inside(["flatbed-326"], "entry_points.py",
                        str(module / "libsane-QuillonLegacy_1_0_0.so.1"))

    def test_orders_of_calls(self):
        for model in ["flatbed-326", "combo-326", "adf-402"]:
            self.run_inside([model + ",block-delay-ms=1"], "jobs.py")

    def test_interrupt(self):
        # Slow enough that a page lasts for seconds.
        for model in ["flatbed-326", "adf-402"]:
            result = self.run_inside([model + ",block-size=4000,block-delay-ms=10"],
                                     "interrupt.py")
            self.assert_same_pages(result.pages("page.pnm"), result.recorded()[-1:])
            for page in (self.folder / "recorded").iterdir():
                page.unlink()

    def test_comma_as_decimal_point(self):
        name = "de_DE.UTF-8"
        subprocess.run(["localedef", "-i", "de_DE", "-f", "UTF-8", str(self.folder / name)],
                       check=True)
        with unittest.mock.patch.dict("os.environ", LOCPATH=str(self.folder)):
            self.run_inside(["flatbed-326"], "comma_locale.py", name)

    def test_odd_orders_of_calls(self):
        # Protocol 402 talks to the scanner when it is opened.
        for model, status_of_open in [("flatbed-326", "0"), ("adf-402", "9")]:
            self.run_inside([model], "odd_orders.py", status_of_open, options=["--tolerate"])

    def test_options_in_every_order(self):
        # As large as the largest media, so that every area of the model can be scanned.
        bed = "flatbed.width=2560,flatbed.height=4300,feeder.width=2560,feeder.sheets=99999"
        for model, numbers in [("adf-402", ["100", "1", "pairs"]), ("wicket-402", ["30", "2"])]:
            self.run_front_end([[f"{model},{bed}", "--feature", "BOTTOMRIGHTX=216.1"]],
                               "orders", *numbers)

    def test_a_thousand_loads(self):
        self.run_front_end(["flatbed-326", "lut-402"], "loads", "1000", "2")

    def test_loads_with_every_symbol_bound(self):
        self.run_front_end(["flatbed-326", "lut-402"], "loads", "100", "2",
                           environment=["LD_BIND_NOW=1"])

    def test_rounds_of_open_scan_and_close(self):
        self.run_front_end(["flatbed-326", "combo-326", "combo-401", "wicket-402"], "rounds",
                           "200")

    def test_conformance(self):
        self.run_front_end(["flatbed-326", "combo-401", "adf-402", "lut-402"], "conformance")

    def test_many_sheets(self):
        for model, slack in [("adf-402", "0"), ("combo-401", "0"), ("wicket-402", "1000000")]:
            self.run_front_end([f"{model},feeder.sheets=10"], "batch", "10", "75", slack)

    def test_a_large_page_is_not_held(self):
        self.run_front_end(["flatbed-326"], "page", "600")


if __name__ == "__main__":
    simulation.main()
