# SPDX-License-Identifier: LGPL-2.1-or-later
"""Cancels at every place of a scan, in a signal handler and from another thread: the status, how
much is still asked of the device, how long it takes, and that the same handle scans on."""

import os
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import simulation

PROBE = Path(os.environ["SCAN_PROBES"]) / "cancel_probe"
USB = "libusb/001/002"
NET = "libnet/020000000001"
HOW = ["signal", "thread"]

# Raw, compressed (a chunk takes several reads), interleaved and framed commands.
MODELS = ["flatbed-326,block-size=4096", "adf-402,block-size=1000",
          "wicket-402,vendor-id=quillon,block-size=500,quality=95",
          "combo-401,stream=interleaved,block-size=3000"]
SEGMENTS = "frame-size=1000,segment-size=777"

# What the device never answers, and the seconds that a cancel may take. On USB each transfer takes
# thirty of the process's clock: the one that is under way, and one for what the cancel itself has
# to read or write.
STUCK_ON_USB = [
    (40, ["reply wake: timeout", "reply feeder-status: timeout", "command wake: timeout",
          "marker: timeout", "block 1: timeout", "block 5: timeout", "end: timeout"]),
    (70, ["reply lock: timeout", "reply start: timeout", "command lock: timeout"]),
]
# Two seconds each of silence end the drain and the wait for the reply to the unlock.
STUCK_ON_NETWORK = [
    (2, ["connect: timeout", "tickle: silence", "reply wake: timeout",
         "reply feeder-status: silence"]),
    (4, ["reply lock: silence"]),
    (6, ["reply start: silence", "marker: silence", "block 1: silence", "block 5: silence 500"]),
]
# Ten seconds of flushing, five for the reply to the unlock, and a transfer.
ENDLESS_SECONDS = 20
ROUNDS = 50


class Cancel(simulation.ScanTestCase):
    def probe(self, devices, *arguments, options=()):
        modules = os.environ.get("SCAN_MODULES")
        folder = Path(tempfile.mkdtemp(dir=self.folder))
        # One that finds nothing running works on the stack of the signal handler.
        unsafe = int(arguments[0] != "random")
        result = self.simulate(devices, ["env", f"TSAN_OPTIONS=report_signal_unsafe={unsafe}",
                                         str(PROBE), *map(str, arguments)],
                               [*(["--modules", modules] if modules else []), *options],
                               folder=folder)
        return result, devices, arguments

    def probe_all(self, cases, options=()):
        """Nearly all the time is waiting."""
        with ThreadPoolExecutor(20) as runs:
            for result, devices, arguments in runs.map(
                    lambda case: self.probe(*case, options=options), cases):
                print(*devices, *arguments, "\n" + result.stdout, flush=True)
                with self.subTest(devices=devices, arguments=arguments):
                    self.assertEqual(result.status, 0, result.stdout + result.stderr)

    def test_every_place(self):
        self.probe_all([
            case for model in MODELS for how in HOW for what in ["places", "again"]
            for case in [([model], what, how, USB),
                         ([["--net", f"{model},{SEGMENTS}"]], what, how, NET)]])

    def test_places_without_a_transfer(self):
        self.probe_all([
            case for model in ["adf-402,feeder.sheets=100,block-size=1000",
                               "wicket-402,vendor-id=quillon,feeder.sheets=100"]
            for case in [([model], "between", "signal", USB),
                         ([["--net", model]], "between", "signal", NET)]])

    def test_a_device_that_never_answers(self):
        model = "adf-402,block-size=1000"
        self.probe_all(
            [([model], "stuck", "signal", USB, seconds, fault)
             for seconds, faults in STUCK_ON_USB for fault in faults] +
            [([["--net", model]], "stuck", "signal", NET, seconds, fault)
             for seconds, faults in STUCK_ON_NETWORK for fault in faults],
            options=["--tolerate"])

    def test_a_device_that_does_not_stop_sending(self):
        model = "flatbed-326,block-size=1000,block-delay-ms=1,blocks-after-cancel=1000000"
        self.probe_all([
            case for how in HOW
            for case in [([model], "endless", how, USB, ENDLESS_SECONDS),
                         ([["--net", model]], "endless", how, NET, ENDLESS_SECONDS)]],
            options=["--tolerate"])

    def test_at_any_time(self):
        self.probe_all([
            case for model in ["adf-402,block-delay-ms=1",
                               "wicket-402,vendor-id=quillon,block-delay-ms=1,block-size=2000"]
            for how in HOW
            for case in [([model], "random", how, USB, ROUNDS),
                         ([["--net", model]], "random", how, NET, ROUNDS)]])

    def test_another_handle_is_closed(self):
        self.probe_all([
            (["adf-402", "flatbed-326"], "besides", "thread", USB, 20, "libusb/001/003"),
            ([["--net", "adf-402"], "flatbed-326"], "besides", "thread", NET, 20, USB)])

    def test_calls_during_the_cancel_of_another_thread(self):
        model = "adf-402,block-delay-ms=2,blocks-after-cancel=10,block-size=4000"
        # A second start that comes before the cancel locks a scanner that scans, on USB.
        self.probe_all([([model], "meanwhile", "thread", USB, 20)], options=["--tolerate"])
        self.probe_all([([["--net", model]], "meanwhile", "thread", NET, 20)])


load_tests = simulation.side_by_side


if __name__ == "__main__":
    simulation.main()
