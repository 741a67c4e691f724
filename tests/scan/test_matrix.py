# SPDX-License-Identifier: LGPL-2.1-or-later
"""Every protocol version, source, colour mode, line layout and command framing."""

import itertools

import simulation

MODELS = {326: "combo-326", 401: "combo-401", 402: "adf-402"}
SOURCES = {"Flatbed": 0, "Automatic Document Feeder": 1}
MODES = ["24-bit Color", "8-bit Grayscale"]
STREAMS = ["raw", "interleaved"]


def device(version, stream, npa, sheets):
    return [f"{MODELS[version]},stream={stream},npa={'yes' if npa else 'no'},"
            f"feeder.sheets={sheets}",
            "--feature", f"ENABLE_NPA={npa}"]


class Matrix(simulation.ScanTestCase):
    def check(self, version, source, mode, stream, npa):
        result = self.scan(device(version, stream, npa, SOURCES[source]), "--resolution", "75",
                           "--source", source, "--mode", mode, "-x", "100", "-y", "120")
        self.assert_page(result)
        magic, width, height, _ = simulation.read_pnm(result.pages()[0])
        self.assertEqual((magic, width, height),
                         ("P6" if "Color" in mode else "P5", 295, 354))


for combination in itertools.product(MODELS, SOURCES, MODES, STREAMS, [0, 1]):
    name = "test_" + "_".join(str(part).split(" ")[0].replace("-", "") for part in combination)
    setattr(Matrix, name, lambda self, parts=combination: self.check(*parts))


if __name__ == "__main__":
    simulation.main()
