# SPDX-License-Identifier: LGPL-2.1-or-later
"""Compressed pages: every line that the stream holds comes out, as the decoder makes it, however
the stream is cut; and what is wrong with a stream ends in a status."""

import itertools
import os
import subprocess

import simulation
from simulation import read_pnm

WICKET_DECODE = os.environ["WICKET_DECODE"]
MODEL = "wicket-402"
COLOUR, GREY = "24-bit Color", "8-bit Grayscale"
FEEDER = "Automatic Document Feeder"
CHANNELS = {"P6": 3, "P5": 1}


def mean_difference(samples, others):
    return sum(abs(a - b) for a, b in zip(samples, others)) / len(samples)


class Compressed(simulation.ScanTestCase):
    def setUp(self):
        super().setUp()
        self.rounds = 0
        self.root = self.folder

    def scan_page(self, *settings, mode=COLOUR, resolution="75", arguments=(), faults=(),
                  features=()):
        """Scans in a folder of its own, so that a test can compare several pages."""
        self.rounds += 1
        self.folder = self.root / str(self.rounds)
        self.folder.mkdir()
        device = [",".join([MODEL, *settings])]
        for fault in faults:
            device += ["--fault", fault]
        for feature in features:
            device += ["--feature", feature]
        return self.scan(device, "--resolution", resolution, "--mode", mode, *arguments)

    def decoded(self, recorded):
        magic, width, _, _ = read_pnm(recorded)
        raw = self.root / "decoded.raw"
        subprocess.run([WICKET_DECODE, recorded.with_suffix(".wck"), str(width),
                        str(CHANNELS[magic]), raw], check=True)
        return raw.read_bytes()

    def assert_decoded(self, result):
        """The pages are what the decoder makes of the chunks sent; all lines are there."""
        pages = list(zip(result.pages(), result.recorded()))
        self.assertEqual(len(result.pages()), len(result.recorded()))
        self.assertGreater(len(pages), 0)
        for delivered, recorded in pages:
            got, source = read_pnm(delivered), read_pnm(recorded)
            self.assertEqual(got[:3], source[:3])
            self.assertEqual(len(got[3]), len(source[3]))
            self.assertTrue(got[3] == self.decoded(recorded), f"{delivered} is decoded wrongly")

    def assert_resembles_source(self, result, tolerance):
        got = read_pnm(result.pages()[0])
        source = read_pnm(result.recorded()[0])
        self.assertEqual(got[:3], source[:3])
        self.assertLess(mean_difference(got[3], source[3]), tolerance)

    def test_as_configured(self):
        result = self.scan_page()
        self.assert_decoded(result)
        self.assert_resembles_source(result, 3)

    def test_bands_and_modes(self):
        for lines, mode in itertools.product([8, 16, 32], [COLOUR, GREY]):
            with self.subTest(lines=lines, mode=mode):
                # 177 lines: the last band is an odd one.
                result = self.scan_page(f"band-lines={lines}", mode=mode, arguments=["-y", "60"])
                self.assert_decoded(result)
                self.assertEqual(read_pnm(result.pages()[0])[2] % 8, 1)
                self.assert_resembles_source(result, 3)

    def test_widths(self):
        seen = set()
        for step, mode in itertools.product(range(8), [COLOUR, GREY]):
            width = 40 + step * 25.4 / 75 + 0.1
            with self.subTest(width=width, mode=mode):
                result = self.scan_page("band-lines=16", mode=mode,
                                        arguments=["-x", f"{width:.2f}", "-y", "30"])
                self.assert_decoded(result)
                seen.add(read_pnm(result.pages()[0])[1] % 8)
        self.assertEqual(seen, set(range(8)))

    def test_qualities(self):
        for quality in ["100", "75", "50", "30", "1", "0", "-1", "95 20 0 60"]:
            for mode in [COLOUR, GREY]:
                with self.subTest(quality=quality, mode=mode):
                    self.assert_decoded(self.scan_page(f"quality={quality}", "band-lines=8",
                                                       mode=mode, arguments=["-y", "60"]))

    def test_blocks_of_any_size(self):
        for size in ["512", "513", "1000", "4096", "16384", "65000"]:
            for transfers in ["separate", "packed"]:
                for mode in [COLOUR, GREY]:
                    with self.subTest(size=size, transfers=transfers, mode=mode):
                        self.assert_decoded(self.scan_page(
                            f"block-size={size}", f"block-transfers={transfers}", "band-lines=8",
                            mode=mode, arguments=["-y", "100"]))

    def test_a_block_for_every_chunk(self):
        # Equal bands make equal chunks; blocks of their size end with them.
        picture = self.root / "plain.ppm"
        picture.write_bytes(b"P6\n1 1\n255\n" + bytes([200, 100, 50]))
        paper = f"flatbed.paper={picture}"
        first = self.scan_page(paper, "band-lines=8", arguments=["-y", "54.3"])
        stream = first.recorded()[0].with_suffix(".wck").read_bytes()
        size = int.from_bytes(stream[:4], "big")
        self.assertEqual(len(stream) % size, 0)
        for blocks in [size, 2 * size, size - 1, size + 1]:
            with self.subTest(blocks=blocks, size=size):
                self.assert_decoded(self.scan_page(paper, "band-lines=8", f"block-size={blocks}",
                                                   arguments=["-y", "54.3"]))

    def test_blank_paper_in_small_bands(self):
        # Many chunks in every block, and many that wait when the page ends.
        picture = self.root / "blank.pgm"
        picture.write_bytes(b"P5\n1 1\n255\n\xff")
        for mode, resolution in [(GREY, "300"), (COLOUR, "300"), (GREY, "600")]:
            with self.subTest(mode=mode, resolution=resolution):
                result = self.scan_page(f"flatbed.paper={picture}", "band-lines=8",
                                        "block-size=65000", mode=mode, resolution=resolution)
                self.assert_decoded(result)
                self.assertEqual(set(read_pnm(result.pages()[0])[3]), {255})

    def test_noise_at_the_best_quality(self):
        for mode in [COLOUR, GREY]:
            self.assert_decoded(self.scan_page("flatbed.paper=noise", "quality=100", mode=mode,
                                               resolution="150", arguments=["-y", "60"]))

    def test_high_resolution(self):
        self.assert_decoded(self.scan_page(resolution="600", arguments=["-y", "40"]))

    def test_small_reads_of_the_front_end(self):
        self.assert_decoded(self.scan_page(arguments=["-y", "60", "--buffer-size=1"]))

    def test_feeder_in_a_batch(self):
        self.folder = self.root
        result = self.simulate(
            [f"{MODEL},feeder.sheets=3,band-lines=16"],
            ["scanimage", "--format=pnm", "--resolution", "75", "--source", FEEDER,
             "--batch=page%d.pnm"])
        self.assertEqual(result.status, 0, result.stderr)
        self.assertEqual(len(result.pages()), 3)
        self.assert_decoded(result)

    def test_a_sheet_that_is_shorter_than_announced(self):
        # All of its chunks are whole: nothing is wrong with the page.
        for mode in [COLOUR, GREY]:
            result = self.scan_page("feeder.sheets=1", "feeder.sheet-height=1000", mode=mode,
                                    arguments=["--source", FEEDER])
            self.assertEqual(result.stderr, "")
            page, recorded = result.pages()[0], result.recorded()[0]
            magic, width, height, samples = read_pnm(page)
            lines = read_pnm(recorded)[2]
            self.assertLess(lines, height)
            self.assertEqual(len(samples), width * lines * CHANNELS[magic])
            self.assertTrue(samples == self.decoded(recorded))

    def test_colours_and_sides_are_put_right(self):
        # An image of two colours, so that what is swapped or mirrored shows.
        picture = self.root / "halves.ppm"
        picture.write_bytes(b"P6\n2 1\n255\n" + bytes([250, 10, 10, 10, 10, 250]))
        result = self.scan_page(f"flatbed.paper={picture}", "flatbed.mirrored=1",
                                "colour-order=bgr",
                                features=["FLATBEDSIDEFLIP=1", "BGRTORGB=1"])
        self.assert_resembles_source(result, 2)

    def test_flipped_bits(self):
        for bits, mode in itertools.product([1, 3, 40, 4000], [COLOUR, GREY]):
            with self.subTest(bits=bits, mode=mode):
                self.assert_decoded(self.scan_page(
                    "band-lines=16", mode=mode, arguments=["-y", "60"],
                    faults=[f"chunk always: flip-bits {bits}"]))

    def test_bodies_that_end_early(self):
        for count, mode in itertools.product([1, 2, 3, 300], [COLOUR, GREY]):
            with self.subTest(count=count, mode=mode):
                self.assert_decoded(self.scan_page(
                    "band-lines=16", mode=mode, arguments=["-y", "60"],
                    faults=[f"chunk 3: shorten {count}"]))

    def spoilt_device(self, fault):
        """A device in a folder of its own whose next page is spoilt."""
        self.rounds += 1
        self.folder = self.root / str(self.rounds)
        self.folder.mkdir()
        return [f"{MODEL},band-lines=16", "--fault", fault]

    def assert_spoilt_scan(self, fault, status, message, lines):
        """scanimage ends with that status and message behind so many lines."""
        scan = "timeout 60 scanimage --format=pnm --resolution 75 -y 60 > spoilt.pnm"
        result = self.simulate([self.spoilt_device(fault)], ["sh", "-c", scan])
        self.assertEqual((result.status, result.stderr), (status, message))
        source, = result.recorded()
        magic, width, height, samples = read_pnm(result.folder / "spoilt.pnm")
        self.assertEqual((magic, width, height), read_pnm(source)[:3])
        self.assertEqual(len(samples), lines * width * 3)
        self.assertTrue(samples == self.decoded(source), "wrong pixels")

    def assert_spoilt_page_then_good_one(self, fault, status):
        result = self.run_inside([self.spoilt_device(fault)], "broken_page.py", str(status),
                                 "spoilt", "good")
        pages = [result.folder / name for name in ["spoilt", "good"]]
        for page, recorded in zip(pages, result.recorded(), strict=True):
            self.assertTrue(page.read_bytes() == self.decoded(recorded), f"{page} is wrong")

    def test_broken_streams_end_with_a_status(self):
        # 177 lines of 637 pixels in eleven chunks of 16 lines and one of a line.
        error = "scanimage: sane_read: Error during device I/O\n"
        surplus = ("scanimage: WARNING: read more data than announced by backend "
                   "(370734/338247)\n")
        for faults, sane_status, message, lines in [
                # All that is there is decoded: the page is short, or odd, but not broken.
                (["3: truncate 0", "3: lines 0"], 5, "", 161),
                (["3: lines 1"], 5, "", 162),
                (["3: lines 33"], 5, surplus, 194),
                (["3: pixels 1", "12: undersize 1"], 5, "", 177),
                # No chunk can be found behind these.
                (["3: size 0", "3: size 1", "3: size 11", "3: size 0x7FFFFFFF",
                  "3: size 0x80000000", "3: size 0xFFFFFFFF", "3: pixels 0",
                  "3: pixels 0xFFFFFFFF"], 9, error, 32),
                # The lines of these are lost.
                (["3: shorten 1000000", "3: lines 100000", "3: lines 0x7FFFFFF9",
                  "3: lines 0xFFFFFFFF", "3: pixels 100000", "3: pixels 0x7FFFFFF9"],
                 9, error, 161),
                # The bytes at the end of the page are no whole chunk.
                (["3: size 100000"], 9, error, 32),
                (["12: truncate 3", "12: truncate 30", "12: oversize 1"], 9, error, 176),
                # What follows is looked for in the wrong place; one chunk seems to come.
                (["3: truncate 3", "3: size 12", "3: size 15", "3: size 16", "3: size 20"],
                 9, error, 32),
                (["3: truncate 15", "3: truncate 16", "3: truncate 500", "3: oversize 1",
                  "3: oversize 1000", "3: undersize 1", "3: undersize 300"], 9, error, 48)]:
            for fault in faults:
                with self.subTest(fault=fault):
                    fault = f"chunk {fault}"
                    # scanimage takes the end of the frame for a success.
                    exit_status = 0 if sane_status == 5 else sane_status
                    self.assert_spoilt_scan(fault, exit_status, message, lines)
                    self.assert_spoilt_page_then_good_one(fault, sane_status)


if __name__ == "__main__":
    simulation.main()
