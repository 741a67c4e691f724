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

    def spoilt_scan(self, fault):
        """A scan with a fault, then a good one; the front end survives the first."""
        self.rounds += 1
        self.folder = self.root / str(self.rounds)
        self.folder.mkdir()
        scan = "scanimage --format=pnm --resolution 75 -y 60"
        return self.simulate(
            [[f"{MODEL},band-lines=16", "--fault", fault]],
            ["sh", "-c", f"timeout 60 {scan} > spoilt.pnm; echo $?; {scan} -o page.pnm"])

    def test_broken_streams_end_with_a_status(self):
        for fault in ["truncate 0", "truncate 3", "truncate 15", "truncate 16", "truncate 500",
                      "shorten 1000000", "size 0", "size 1", "size 15", "size 16", "size 20", "size 100000",
                      "size 0x7FFFFFFF", "size 0x80000000", "size 0xFFFFFFFF", "oversize 1",
                      "oversize 1000", "undersize 1", "undersize 300", "lines 0", "lines 1",
                      "lines 33", "lines 100000", "lines 0x7FFFFFF9", "lines 0xFFFFFFFF",
                      "pixels 0", "pixels 1", "pixels 100000", "pixels 0x7FFFFFF9",
                      "pixels 0xFFFFFFFF"]:
            with self.subTest(fault=fault):
                result = self.spoilt_scan(f"chunk 3: {fault}")
                self.assertEqual(result.status, 0, result.stderr)
                # Above 100: killed by the time limit or by a signal.
                self.assertLess(int(result.stdout.split()[0]), 100, result.stderr)
                _, second = result.recorded()
                good = self.decoded(second)
                magic, width, height, samples = read_pnm(result.pages()[0])
                self.assertEqual((magic, width, height), read_pnm(second)[:3])
                self.assertTrue(samples == good)
                # The two chunks before the broken one came as ever.
                _, _, _, spoilt = read_pnm(result.folder / "spoilt.pnm")
                start = 2 * 16 * width * 3
                self.assertTrue(spoilt[:start] == good[:start], "good lines are lost")


if __name__ == "__main__":
    simulation.main()
