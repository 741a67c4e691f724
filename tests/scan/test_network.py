# SPDX-License-Identifier: LGPL-2.1-or-later
"""Scanners on the network: found by a search, used by the name that is shown, whatever the sizes of
frames and segments. What a connection can suffer is in test_faults.py.

Every process searches for ten seconds before it knows a network scanner, so the tests run side by
side, and many pages are scanned by one process.
"""

import re
from concurrent.futures import ThreadPoolExecutor

import simulation

# The host listens for two seconds each for the end of the page and for the reply to its unlock.
SILENT_CANCEL_SECONDS = 5
NAME = "QuillonLegacy_1_0_0:libnet/020000000001"

# All models, line layouts and command framings; keys that hold for both transports.
DEVICES = [
    ["flatbed-326"],
    ["flatbed-326,stream=interleaved,block-size=5001"],
    ["combo-326"],
    ["combo-326,feeder.sheets=9,stream=interleaved"],
    ["combo-401"],
    ["combo-401,stream=interleaved,product-id=0x7401,npa=yes", "--feature", "ENABLE_NPA=1"],
    ["adf-401"],
    ["adf-401,stream=interleaved,block-size=777"],
    ["adf-402"],
    ["adf-402,stream=interleaved,product-id=0x7402,npa=no", "--feature", "ENABLE_NPA=0"],
    ["lut-402"],
    ["lut-402,stream=raw"],
    ["wicket-402"],
    ["wicket-402,band-lines=7,block-size=999,quality=90 20"],
]
# Protocol 326 takes sheets from the feeder while there are any, and the third device has none;
# the seventh and the eighth have no glass.
ONLY_SOURCES = ["3=Flatbed", "4=Automatic Document Feeder",
                "7=Automatic Document Feeder", "8=Automatic Document Feeder"]
SEGMENTS = ["segments=frames", "segments=packed", "segment-size=1460", "segment-size=61"]


def on_network(device, number):
    """A device of DEVICES with frames and segments of its own."""
    first, *rest = device
    return ["--net", f"{first},frame-size=random:{number},{SEGMENTS[number % len(SEGMENTS)]}",
            *rest]


class Network(simulation.ScanTestCase):
    def inside(self, name, devices, script, *arguments, options=()):
        """Runs a script of inside/ in a folder of its own."""
        result = self.simulate(
            devices, [simulation.PYTHON, str(simulation.INSIDE / script), *arguments], options,
            folder=self.subfolder(name))
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
        return result

    def test_listed_and_used_by_the_name_in_the_list(self):
        names = ["libusb/001/002", "libusb/001/003", "libnet/020000000003", "libnet/100070482C6A"]
        scan = "scanimage --resolution 75 -y 60 --format=pnm -d QuillonLegacy_1_0_0:"
        # Not at the same time: of two searches on one machine, one gets the answers of both.
        pages = " && ".join(f"{scan}{name} -o page{i}.pnm" for i, name in enumerate(names, 1))
        result = self.simulate(
            ["flatbed-326", "adf-402", ["--net", "combo-401,frame-size=random:1"],
             ["--net", "adf-401,mac=100070482C6A,segments=packed"]],
            ["sh", "-c", f"scanimage -L && {pages}"])
        self.assertEqual(result.status, 0, result.stderr)
        models = ["Flatbed 326", "Combo 402", "Combo 401", "Feeder 401"]
        self.assertEqual(
            sorted(result.stdout.splitlines()),
            sorted(f"device `QuillonLegacy_1_0_0:{name}' is a Quillon {model} Scanner"
                   for name, model in zip(names, models)))
        self.assert_page(result)

    def test_pages_are_those_of_usb(self):
        arguments = ["every_page.py", str(len(DEVICES)), *ONLY_SOURCES]
        networked = [on_network(device, number) for number, device in enumerate(DEVICES, 1)]
        with ThreadPoolExecutor() as runs:
            network = runs.submit(self.inside, "net", networked, *arguments)
            usb = self.inside("usb", DEVICES, *arguments)
            network = network.result()
        pages = usb.pages("*.raw")
        self.assertGreater(len(pages), 2 * len(DEVICES))
        self.assertEqual([page.name for page in pages],
                         [page.name for page in network.pages("*.raw")])
        for page in pages:
            expected = page.read_bytes()
            self.assertGreater(len(expected), 10000)
            self.assertTrue((network.folder / page.name).read_bytes() == expected, page.name)

    def test_the_first_scanner_of_a_backend(self):
        # Of the network, where one is found there and opens.
        for name, keys, device in [("network", "", 2), ("usb", ",port=closed", 1)]:
            result = self.simulate(
                ["flatbed-326", ["--net", f"adf-402{keys}"]],
                ["scanimage", "-d", "QuillonLegacy_1_0_0", "--format=pnm", "--resolution", "75",
                 "-o", "page.pnm"], folder=self.subfolder(name))
            self.assertEqual(result.status, 0, result.stderr)
            self.assert_same_pages(result.pages(), result.recorded(device))

    def test_behind_a_link(self):
        result = self.simulate(
            [["--net", "adf-402,ip=192.168.7.9,segment-size=1460"]],
            ["scanimage", "-d", NAME, "--format=pnm", "--resolution", "75", "-o", "page.pnm"],
            ["--veth"])
        self.assertEqual(result.status, 0, result.stderr)
        self.assert_page(result)

    def test_answers_of_all_kinds(self):
        others = ["answer.vid-pid=0xDEAD0001", "answer.leave-out=IPADDRESS", "answer.count=0",
                  "answer.leave-out=MACUAA", "answer.pointers=yes", "answer.garbage=20",
                  "answer.leave-out=PRINTERVIDPID", "answer.foreign=20",
                  "answer.quotes=no", "answer.count=2", "answer.delay-ms=5000",
                  "answer.delay-ms=12000", "answer.question=yes"]
        result = self.simulate([["--net", f"flatbed-326,{keys}"] for keys in others],
                               ["scanimage", "-L"])
        numbers = [int(number, 16) for number in re.findall(r"libnet/02(\w+)'", result.stdout)]
        self.assertEqual(sorted(numbers), [6, 8, 9, 10, 10, 11, 13], result.stdout)

    def test_a_flood_does_not_prolong_the_search(self):
        result = self.simulate(
            [["--net", "flatbed-326,answer.flood-ms=60000"]],
            ["sh", "-c", "date +%s; scanimage -L; date +%s"])
        first, *listed, last = result.stdout.split("\n")[:-1]
        self.assertIn(NAME, "".join(listed))
        self.assertLessEqual(int(last) - int(first), 12)

    def test_interrupted_while_the_scanner_is_silent(self):
        result = self.inside("silent", [["--net", "flatbed-326", "--fault", "block 30: silence"]],
                             "silent.py", NAME, str(SILENT_CANCEL_SECONDS),
                             options=["--tolerate"])
        self.assert_same_pages(result.pages(), result.recorded()[-1:])

    def test_interrupted_in_the_middle(self):
        result = self.inside("interrupt",
                             [["--net", "adf-402,block-size=4000,block-delay-ms=10"]],
                             "interrupt.py", "-d", NAME)
        self.assert_same_pages(result.pages("page.pnm"), result.recorded()[-1:])

    def test_scanimage_self_test(self):
        result = self.simulate([["--net", "adf-402"]], ["scanimage", "-d", NAME, "-T"],
                               folder=self.subfolder("self_test"))
        self.assertEqual(result.status, 0, result.stderr)
        self.assertIn("PASS", result.stderr)
        self.assertNotIn("FAIL", result.stderr)

    def test_saned(self):
        self.check_saned([["--net", f"adf-402,{simulation.SANED_KEYS}"]], NAME)


class Work(simulation.ScanTestCase):
    """These do not wait, and would let the others miss their limits."""

    def test_rounds_of_open_scan_and_close(self):
        self.run_front_end([["--net", "flatbed-326"], ["--net", "wicket-402,frame-size=random:1"]],
                           "rounds", "200", folder=self.subfolder("rounds"))

    def test_options_in_every_order(self):
        self.run_front_end(
            [["--net", "combo-401,flatbed.width=2560,flatbed.height=4300,feeder.width=2560,"
              "feeder.sheets=99999", "--feature", "BOTTOMRIGHTX=216.1"]],
            "orders", "50", "2", folder=self.subfolder("orders"))

    def test_everything_at_once(self):
        self.run_front_end(
            ["combo-401", "adf-402", "wicket-402,block-size=500", ["--net", "adf-402"],
             ["--net", "wicket-402,block-size=500,frame-size=random:1,product-id=0x77"]],
            "soak", "10", "1", options=["--tolerate"], folder=self.subfolder("soak"))


load_tests = simulation.side_by_side


if __name__ == "__main__":
    simulation.main()
