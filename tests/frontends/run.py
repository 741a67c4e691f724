# SPDX-License-Identifier: LGPL-2.1-or-later
"""Tries front ends on simulated scanners, see scripts/try-frontends.

Arguments: the simulation, the folder for what comes of it, and which front ends, if not all."""

import shutil
import sys
import time
import traceback
from pathlib import Path

import gscan2pdf
import scanbd
import simple_scan
import xsane
from desktop import Display
from trial import Trial

FRONT_ENDS = {"simple-scan": simple_scan, "xsane": xsane, "gscan2pdf": gscan2pdf,
              "scanbd": scanbd}


def attempt(step, trial):
    """Returns what went wrong, nothing if nothing did."""
    try:
        step(trial)
        return ""
    except Exception as failure:  # whatever it is, the others are tried
        trial.screenshot("failed")
        (trial.folder / "failure").write_text(traceback.format_exc())
        return str(failure) or repr(failure)
    finally:
        trial.stop()


def main():
    simulation, out, *chosen = sys.argv[1:]
    steps = [(name, step) for name in chosen or FRONT_ENDS for step in FRONT_ENDS[name].STEPS]
    failed = 0
    with Display() as display:
        for number, (name, step) in enumerate(steps, 1):
            folder = Path(out) / name / step.__name__
            shutil.rmtree(folder, ignore_errors=True)
            began = time.monotonic()
            wrong = attempt(step, Trial(folder, display, simulation))
            failed += bool(wrong)
            print(f"[{number}/{len(steps)}] {name:12} {step.__doc__:63}"
                  f"{'FAILED' if wrong else 'passed'} {time.monotonic() - began:6.1f} s",
                  flush=True)
            if wrong:
                print(f"    {wrong}", flush=True)
    print(f"{len(steps) - failed} passed, {failed} failed; screenshots and pages: {out}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
