# SPDX-License-Identifier: LGPL-2.1-or-later
"""What devices do wrong: every row of fault_table.py, and docs/faults.md, which shows them.

Arguments, if any, are words of the names of the groups that are to be carried out.
"""

import json
import os
import sys
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import fault_page
import fault_table
import simulation

PRELOADS = Path(os.environ["SCAN_PRELOAD_DIR"])
# The leak check asks for itself, and has to follow pointers through Python's objects.
SANITIZED = ["PYTHONMALLOC=malloc", "ASAN_OPTIONS=leak_check_at_exit=0"]
# What the allocator keeps for later would count as memory in use.
PLAIN = ["GLIBC_TUNABLES=glibc.malloc.tcache_count=0"]
AT_ONCE = 3
# The seconds that calls may take on top; on a fast clock, where each counts so much more and
# rounds get a second chance, fewer.
SLOWNESS = 4 if simulation.PRELOAD else 1
SLOWNESS_OF_FAST_CLOCK = 0.3


def rows_of(group):
    """For inside/fault_rounds.py."""
    slowness = group.speed * SLOWNESS_OF_FAST_CLOCK if group.speed > 1 else SLOWNESS
    return [{"name": row.fault,
             "faults": [part[1:] if part.startswith("!") else f"fault {part}"
                        for part in row.fault.split("; ")],
             "calls": row.calls,
             "delivered": row.delivered,
             "limit": row.limit + slowness,
             "isQuick": row.limit == fault_table.QUICK,
             "values": list(row.values),
             "recovery": row.recovery.split("; ") if row.recovery else []}
            for row in group.rows]


class Faults(simulation.ScanTestCase):
    def carry_out(self, group):
        folder = self.folder / str(fault_table.GROUPS.index(group))
        folder.mkdir()
        (folder / "group.json").write_text(json.dumps(
            {"rows": rows_of(group), "options": group.options, "sheets": group.sheets,
             "block": fault_table.BLOCK, "isFast": group.speed > 1}))
        libraries = [simulation.PRELOAD] if simulation.PRELOAD else []
        environment = SANITIZED if simulation.PRELOAD else PLAIN
        if group.speed > 1:
            libraries.append(str(PRELOADS / "fast_clock.so"))
        preload = f"LD_PRELOAD={':'.join(libraries)}"
        *network, device = group.device.split(" ")
        return self.simulate(
            [[*network, f"{device},block-size={fault_table.BLOCK}"]],
            ["env", *environment, preload, f"FAST_CLOCK={group.speed}", simulation.PYTHON,
             str(simulation.INSIDE / "fault_rounds.py"), "group.json"],
            options=["--tolerate", *group.simulation], folder=folder)

    def test_every_row(self):
        chosen = [group for group in fault_table.GROUPS
                  if not CHOSEN or any(word in group.name for word in CHOSEN)]
        # Those on the network, or with a fast clock, mostly wait.
        waiting = [group for group in chosen if group.is_networked or group.speed > 1]
        busy = [group for group in chosen if group not in waiting]
        with ThreadPoolExecutor(len(waiting) or 1) as asleep, ThreadPoolExecutor(AT_ONCE) as runs:
            results = [(group, asleep.submit(self.carry_out, group)) for group in waiting]
            results += [(group, runs.submit(self.carry_out, group)) for group in busy]
            for group, result in results:
                with self.subTest(group=group.name):
                    self.check(group, result.result())

    def check(self, group, result):
        print(f"{group.name}\n{result.stdout}", flush=True)
        self.assertEqual(result.status, 0, result.stdout + result.stderr)

    def test_page_shows_the_rows(self):
        self.assertEqual(fault_page.PATH.read_text(), fault_page.text(),
                         "docs/faults.md is not made from tests/scan/fault_table.py; "
                         "tests/scan/fault_page.py makes it anew")

    def test_the_figure_is_right(self):
        readme = fault_page.PATH.parents[1] / "README.md"
        self.assertIn(f"{fault_page.fault_count()} faults", readme.read_text())


CHOSEN = [sys.argv.pop() for _ in sys.argv[1:]]

if __name__ == "__main__":
    unittest.main()
