# SPDX-License-Identifier: LGPL-2.1-or-later
"""Windows, resolutions, block sizes and ends of pages, through scanimage."""

import simulation
from simulation import read_pnm


class Pages(simulation.ScanTestCase):
    def test_shipped_models_scan_as_configured(self):
        for model in ["flatbed-326", "combo-326", "combo-401", "adf-402"]:
            with self.subTest(model=model):
                self.folder = self.folder / model
                self.folder.mkdir()
                self.assert_page(self.scan(model, "--resolution", "150"))

    def test_feeder_only_model(self):
        self.assert_page(self.scan("adf-401,feeder.sheets=1", "--resolution", "75", "--source",
                                   "Automatic Document Feeder"))

    def test_resolutions_and_windows(self):
        windows = [("0", "0", "215.9", "279.4"), ("10", "20", "50.7", "33.3"),
                   ("100.1", "0", "115.8", "40"), ("0.4", "250", "25.4", "25.4")]
        number = 0
        for resolution in ["75", "150", "300"]:
            for left, top, width, height in windows:
                with self.subTest(resolution=resolution, left=left):
                    number += 1
                    self.folder = self.folder / str(number)
                    self.folder.mkdir()
                    self.assert_page(self.scan("combo-401", "--resolution", resolution, "-l", left,
                                               "-t", top, "-x", width, "-y", height))
                    self.folder = self.folder.parent

    def test_lines_longer_than_a_read(self):
        # 600 dpi colour: 15300 bytes a line, in reads of 1 KB to 32 KB.
        self.assert_page(self.scan("combo-326", "--resolution", "600", "-y", "30"))
        self.assert_page(self.scan("combo-326", "--resolution", "600", "-y", "30",
                                   "--buffer-size=1"))

    def test_blocks_of_any_size(self):
        for size in ["1", "7", "500", "4087", "4096", "32768", "65000"]:
            for transfers in ["separate", "packed"]:
                with self.subTest(size=size, transfers=transfers):
                    self.assert_page(self.scan(
                        f"combo-401,block-size={size},block-transfers={transfers}", "--resolution", "75",
                        "-x", "26", "-y", "26"))
                    for page in (self.folder / "recorded").iterdir():
                        page.unlink()

    def test_partial_last_line_is_delivered(self):
        line = 177 * 3
        for model, mirrored in [("flatbed-326", False), ("combo-401", True)]:
            whole = self.read_raw([model])
            self.assertEqual(len(whole), 177 * line)
            for missing in [1, 100, line - 1, line, line + 4]:
                with self.subTest(model=model, missing=missing):
                    cut = self.read_raw([model, "--fault", f"page: cut {missing}"])
                    self.assertEqual(len(cut), len(whole) - missing)
                    # What there is of a mirrored line cannot be put where it belongs.
                    same = len(cut) // line * line if mirrored else len(cut)
                    self.assertTrue(cut[:same] == whole[:same])

    def read_raw(self, device):
        result = self.run_inside([device], "read_page.py", "raw.bin", "75", "60", "60")
        return (result.folder / "raw.bin").read_bytes()

    def test_grey_preview(self):
        result = self.scan("combo-401", "--preview=yes", "--mode", "8-bit Grayscale")
        self.assert_page(result)
        self.assertEqual(read_pnm(result.pages()[0])[:3], ("P5", 637, 824))

    def test_full_width_is_narrowed_at_300_dpi(self):
        device = ["combo-401", "--feature", "BOTTOMRIGHTX=216.0"]
        result = self.scan(device, "--resolution", "300", "-l", "0", "-x", "216", "-y", "30")
        self.assert_page(result)
        self.assertEqual(read_pnm(result.pages()[0])[1], int(300 * 215 / 25.4))

    def test_paper_from_a_picture(self):
        picture = self.folder / "picture.ppm"
        pixels = bytes((x * 7 + y * 3 + c * 50) & 255
                       for y in range(60) for x in range(80) for c in range(3))
        picture.write_bytes(b"P6\n80 60\n255\n" + pixels)
        self.assert_page(self.scan(f"flatbed-326,flatbed.paper={picture}", "--resolution", "75"))

    def test_image_bytes_that_look_like_a_record(self):
        # Rows of ESC S 02 and non-zero bytes everywhere, so that reads start with them.
        picture = self.folder / "escape.ppm"
        picture.write_bytes(b"P6\n1 1\n255\n" + bytes([0x1B, 0x53, 0x02]))
        self.assert_page(self.scan(f"flatbed-326,flatbed.paper={picture},block-size=60000",
                                   "--resolution", "150"))

    def test_two_devices_in_turn(self):
        self.run_inside(["flatbed-326", "adf-402", "lut-402"], "two_devices.py")

    def test_batch_until_the_feeder_is_empty(self):
        for model, sheets in [("adf-402", 3), ("combo-326", 2), ("adf-401", 4)]:
            with self.subTest(model=model):
                self.folder = self.folder / model
                self.folder.mkdir()
                result = self.simulate(
                    [f"{model},feeder.sheets={sheets}"],
                    ["scanimage", "--format=pnm", "--resolution", "75", "--source",
                     "Automatic Document Feeder", "--batch=page%d.pnm"])
                self.assertEqual(result.status, 0, result.stderr)
                self.assertIn("out of documents", result.stderr)
                self.assertEqual(len(result.pages()), sheets)
                self.assert_page(result)

    def test_empty_feeder(self):
        result = self.simulate(["adf-402,feeder.sheets=0"],
                               ["scanimage", "--source", "Automatic Document Feeder"])
        self.assertEqual(result.status, 7)
        self.assertIn("out of documents", result.stderr)

    def test_feeder_windows_keep_their_width(self):
        # Widths in whole pixels, where the mirrored area may come out a bit narrower.
        for name, width in [("Index Card (3 x 5 in)", 450), ("4 x 6 in", 600)]:
            with self.subTest(media=name):
                result = self.run_inside(
                    [["adf-402,feeder.sheets=2", "--feature", "BOTTOMRIGHTX=216.0"]],
                    "media_page.py", name)
                self.assertEqual([read_pnm(page)[1] for page in result.recorded()],
                                 [width, width])

    def test_colour_correction(self):
        plain = self.scan("lut-402", "--resolution", "75", "-y", "60", output="page.pnm")
        magic, width, height, corrected = read_pnm(plain.pages()[0])
        recorded = read_pnm(plain.recorded()[0])
        self.assertEqual((magic, width, height), recorded[:3])
        self.assertNotEqual(corrected, recorded[3])
        # The correction is a function of the sample and its channel.
        for channel in range(3):
            table = {}
            for before, after in zip(recorded[3][channel::3], corrected[channel::3]):
                self.assertEqual(table.setdefault(before, after), after)
            self.assertGreater(len(table), 100)

    def test_missing_correction_library_leaves_the_page_as_it_is(self):
        self.assert_page(self.scan(["lut-402", "--feature", "SCLIB=/nowhere/libnone.so"],
                                   "--resolution", "75", "-y", "60"))


if __name__ == "__main__":
    simulation.main()
