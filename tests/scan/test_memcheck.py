# SPDX-License-Identifier: LGPL-2.1-or-later
"""scanimage, unmodified, under valgrind's memcheck: no invalid access, nothing undefined used, no
leak. Needs a build without sanitizers. Short runs with the other tests; all by scripts/memcheck."""

import sys
from concurrent.futures import ThreadPoolExecutor

import simulation

FEEDER = ["--source", "Automatic Document Feeder"]
GREY = ["--mode", "8-bit Grayscale"]
QUILLON = "QuillonLegacy_1_0_0:libnet/020000000001"
OXLE = "Oxle09:libnet/020000000001"
AREA = ["--resolution", "75", "-l", "3", "-x", "80", "-y", "60"]

# The code of the backend is unloaded before the leaks are searched.
VALGRIND = ["valgrind", "--log-file=valgrind-%p.log", "--error-exitcode=101", "--leak-check=full",
            "--show-leak-kinds=definite,indirect,possible",
            "--errors-for-leak-kinds=definite,indirect,possible", "--keep-debuginfo=yes",
            "--num-callers=30"]

# Device, arguments of scanimage, name of the network device.
SCANS = [
    ("flatbed-326", [], QUILLON),
    ("flatbed-326", GREY, QUILLON),
    ("combo-326", [], QUILLON),
    ("combo-326,feeder.sheets=1", GREY, QUILLON),
    ("combo-401,stream=interleaved", FEEDER, QUILLON),
    ("adf-402", [], QUILLON),
    ("adf-402,block-transfers=packed,block-size=999", FEEDER + GREY, QUILLON),
    ("lut-402", [], OXLE),
    ("lut-402,stream=raw", FEEDER, OXLE),
    ("wicket-402", [], OXLE),
    ("wicket-402,band-lines=7,quality=90 20", GREY, OXLE),
    ("wicket-402,block-size=777", FEEDER, OXLE),
]


class MemcheckTestCase(simulation.ScanTestCase):
    def check(self, device, *arguments, script=None, status=0, options=()):
        """Every process of it, in a folder of its own, may not have errors."""
        name = "-".join(map(str, [device, *arguments]))
        folder = self.subfolder(name)
        wrapper = folder / "scanimage"
        wrapper.write_text(f'#!/bin/sh\nexec {" ".join(VALGRIND)} /usr/bin/scanimage "$@"\n')
        wrapper.chmod(0o755)
        command = [simulation.PYTHON, str(simulation.INSIDE / script)] if script else [
            "scanimage", "--format=pnm", *AREA]
        result = self.simulate([device], ["sh", "-c", 'PATH="$PWD:$PATH" exec "$@"', "sh",
                                          *command, *arguments], options, folder=folder)
        logs = [log.read_text() for log in folder.glob("valgrind-*.log")]
        self.assertEqual(result.status, status, result.stderr + "".join(logs))
        self.assertGreater(len(logs), 0)
        for log in logs:
            self.assertIn("ERROR SUMMARY: 0 errors", log)
            self.assertIn("definitely lost: 0 bytes" if "LEAK SUMMARY" in log
                          else "All heap blocks were freed", log)
        return result

    def check_page(self, device, *arguments):
        result = self.check(device, *arguments, "-o", "page.pnm")
        self.assertEqual(len(result.pages()), 1)
        got, played = (simulation.read_pnm(page)[:3]
                       for page in (result.pages()[0], result.recorded()[0]))
        self.assertEqual(got, played)


class Short(MemcheckTestCase):
    def test_compressed_page(self):
        self.check_page("wicket-402")

    def test_interleaved_page_with_correction(self):
        self.check_page("lut-402", *FEEDER)


class Memcheck(MemcheckTestCase):
    """Over the network most of the time is the search: side by side."""

    def side_by_side(self, check, cases):
        with ThreadPoolExecutor(4) as runs:
            for case, run in [(case, runs.submit(check, *case)) for case in cases]:
                with self.subTest(case=case):
                    run.result()
                    print(".", end="", file=sys.stderr, flush=True)

    def test_usb(self):
        self.side_by_side(lambda device, *arguments: self.check_page(device, *arguments),
                          [(device, *arguments) for device, arguments, _ in SCANS])

    def test_network(self):
        def check(device, *arguments):
            self.check_page(("--net", f"{device},frame-size=random:1"), *arguments)

        self.side_by_side(check, [(device, *arguments, "-d", name)
                                  for device, arguments, name in SCANS])

    def test_batch_until_the_feeder_is_empty(self):
        for device in ["adf-402,feeder.sheets=3", "wicket-402,feeder.sheets=3"]:
            result = self.check(device, *FEEDER, "--batch=page%d.pnm")
            self.assertEqual(len(result.pages()), 3)

    def test_interrupted_in_the_middle(self):
        for device in ["flatbed-326", "combo-326", "adf-402"]:
            self.check(f"{device},block-size=4000,block-delay-ms=20", script="interrupt.py")

    def test_interrupted_in_the_middle_on_the_network(self):
        self.check(("--net", "adf-402,block-size=4000,block-delay-ms=20"), "-d", QUILLON,
                   script="interrupt.py")

    def test_faults(self):
        for fault in ["block 2: jam", "block 2: unplug", "reply lock: status 131",
                      "end: unplug"]:
            for device in ["combo-326", "wicket-402,block-size=1000"]:
                self.check_fault(device, fault)

    def check_fault(self, device, fault):
        folder = "valgrind " + fault
        with self.subTest(device=device, fault=fault):
            result = self.simulate(
                [[device, "--fault", fault]], [*VALGRIND, "scanimage", *AREA, "-o", "page.pnm"],
                ["--tolerate"], folder=self.subfolder(f"{device} {folder}"))
            self.assertNotIn(result.status, (0, 101), result.stderr)

    def test_list(self):
        result = self.check("flatbed-326", "-L")
        self.assertIn("Flatbed 326", result.stdout)


if __name__ == "__main__":
    simulation.main()
