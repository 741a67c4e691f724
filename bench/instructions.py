# SPDX-License-Identifier: LGPL-2.1-or-later
"""Instructions that a page costs, for each KB of it, beside the figures kept in bench/baseline. Ends
with 1 where one has grown by more than a tenth. Arguments: scanner-sim, instruction_bench, the folder
of the modules without AVX2, and "--keep" to take the figures over. What differs between machines is
left out of the count: the environment, and the variants of the C library's copies. Scenes with AVX2
are counted where the processor has it."""

import re
import shutil
import subprocess
import sys
from pathlib import Path

BASELINE = Path(__file__).resolve().parent / "baseline"
SIMULATED = {"network": "--net"}  # the rest is on USB
SCENES = ["raw", "network"]
VECTOR_SCENES = ["compressed", "interleaved"]
PLAIN = "-sse2"
MOST_GROWTH = 1.1
HEAD = """# SPDX-License-Identifier: LGPL-2.1-or-later
# Instructions for each KB that a front end gets: bench/instructions.py --keep writes this file.
"""


def count(simulation, program, scene, *modules):
    command = [simulation, SIMULATED.get(scene, "--usb"), "flatbed-326", "--", "env", "-i",
               "GLIBC_TUNABLES=glibc.cpu.hwcaps="
               "-AVX512F,-AVX2,-AVX,-AVX_Fast_Unaligned_Load,-ERMS,-FSRM",
               shutil.which("valgrind"), "--tool=callgrind", "--callgrind-out-file=/dev/null",
               "--toggle-collect=counted", program, scene, *modules]
    result = subprocess.run(command, capture_output=True, text=True)
    assert result.returncode == 0, result.stdout + result.stderr
    instructions = int(re.search(r"Collected : (\d+)", result.stderr).group(1))
    return instructions / (int(result.stdout) / 1024)


def read_baseline():
    lines = BASELINE.read_text().splitlines() if BASELINE.exists() else []
    return {name: float(value) for name, value in
            (line.split() for line in lines if line and not line.startswith("#"))}


def count_all(simulation, program, plain_modules):
    has_vectors = " avx2 " in Path("/proc/cpuinfo").read_text()
    counts = {scene: count(simulation, program, scene)
              for scene in SCENES + (VECTOR_SCENES if has_vectors else [])}
    for scene in VECTOR_SCENES:
        counts[scene + PLAIN] = count(simulation, program, scene, plain_modules)
    return counts


def main():
    counts = count_all(*sys.argv[1:4])
    if "--keep" in sys.argv:
        BASELINE.write_text(HEAD + "".join(f"{name} {value:.1f}\n"
                                           for name, value in counts.items()))
    kept = read_baseline()
    status = 0
    for name, value in counts.items():
        growth = value / kept[name]
        print(f"{name:16} {value:8.1f} instructions a KB, {growth:.3f} of what is kept", end="")
        if growth > MOST_GROWTH:
            status = 1
            print(": more than it was", end="")
        elif growth < 1 / MOST_GROWTH:
            print(": less than it was, to be kept", end="")
        print()
    return status


sys.exit(main())
