# SPDX-License-Identifier: LGPL-2.1-or-later
"""Perl's SANE binding, libimage-sane-perl, on which gscan2pdf is built."""

import simulation


class Perl(simulation.ScanTestCase):
    def test_glass_and_feeder(self):
        result = self.simulate(["adf-402,feeder.sheets=3"],
                               [simulation.PERL, str(simulation.INSIDE / "perl_sane.pl"), "3"])
        self.assertEqual(result.status, 0, result.stdout + result.stderr)
        # But for the page that was cancelled.
        self.assert_same_pages(result.pages(), result.recorded()[1:])


if __name__ == "__main__":
    simulation.main()
