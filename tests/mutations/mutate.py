# SPDX-License-Identifier: LGPL-2.1-or-later
"""Breaks the source in small ways, one at a time, and counts how often the tests notice.

The lists (*.txt beside this file) say what is replaced by what, and which tests come into
question. Everything happens in a copy of the tree below build/mutate, which is kept: the next run
only compiles what has changed.
"""

import argparse
import contextlib
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
LISTS = Path(__file__).resolve().parent
TREE = ROOT / "build" / "mutate" / "tree"
BUILD = ROOT / "build" / "mutate" / "build"
UNIT = BUILD / "tests" / "unit"
SHARDS = {"network_tests": 8, "engine_tests": 3}  # they wait more than they work
PROGRAMS = {"backend_tests": "libsane-sandboxed.test"}  # where the file has another name
SCAN_TARGETS = ["sane_quillon", "sane_oxle", "scanner-sim", "scansim_correction", "wicket_decode",
                "front_end", "preload_syslog_to_file", "preload_fast_clock"]
PYTHON = "/usr/bin/python3"
WANTED_SCORE = 0.9
ATTEMPTS = 3
FIRST_LIMIT = 600  # seconds, for a run that has not been timed yet


class ListError(Exception):
    pass


@dataclass
class Mutation:
    name: str
    binaries: list
    scans: list
    file: str = ""
    equivalent: str = ""
    old: list = field(default_factory=list)
    new: list = field(default_factory=list)

    def mutated(self, root):
        """The text of the file below that folder with the mutation in it."""
        path = root / self.file
        if not self.file or not path.is_file():
            raise ListError(f"{self.name}: no file {self.file!r}")
        text, old = path.read_text(), "\n".join(self.old)
        found = text.count(old) if old else 0
        if found != 1:
            raise ListError(f"{self.name}: {found} times in {self.file}, not once:\n{old}")
        return text.replace(old, "\n".join(self.new))


@dataclass
class Outcome:
    returncode: int  # None: it did not end
    output: str
    seconds: float


def read_list(path):
    mutations, defaults = [], {"binaries": [], "scans": []}
    for line in path.read_text().splitlines():
        key, colon, value = line.partition(": ")
        if line.startswith("["):
            mutations.append(Mutation(line[1:-1], defaults["binaries"], defaults["scans"]))
        elif not line or line.startswith("#"):
            continue
        elif not mutations and colon and key in defaults:
            defaults[key] = value.split()
        elif mutations and line[:2] in ("- ", "+ "):
            (mutations[-1].old if line[0] == "-" else mutations[-1].new).append(line[2:])
        elif mutations and colon and key in ("file", "equivalent"):
            setattr(mutations[-1], key, value)
        else:
            raise ListError(f"{path.name}: what is {line!r}?")
    return mutations


def read_lists():
    mutations = [m for path in sorted(LISTS.glob("*.txt")) for m in read_list(path)]
    names = [m.name for m in mutations]
    problems = [f"{name}: a name for several" for name in sorted(set(names))
                if names.count(name) > 1]
    for mutation in mutations:
        try:
            mutation.mutated(ROOT)
        except ListError as error:
            problems.append(str(error))
    if problems:
        raise ListError("\n".join(problems))
    return mutations


def write_if_changed(path, data):
    if not path.is_file() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def copy_tree():
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others",
                             "--exclude-standard"], cwd=ROOT, check=True, stdout=subprocess.PIPE)
    names = {os.fsdecode(name) for name in listed.stdout.split(b"\0") if name}
    names = {name for name in names if (ROOT / name).is_file()}
    for name in names:
        write_if_changed(TREE / name, (ROOT / name).read_bytes())
        (TREE / name).chmod((ROOT / name).stat().st_mode)
    for path in TREE.rglob("*"):
        if path.is_file() and "__pycache__" not in path.parts and \
                str(path.relative_to(TREE)) not in names:
            path.unlink()


def end_group(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def run(command, limit, shards=1, environment=None, cwd=None):
    """Runs a command, or so many of it side by side that GoogleTest shares the tests out to, each
    in a process group of its own. The first failure ends all."""
    start = time.monotonic()
    with contextlib.ExitStack() as stack:
        outputs = [stack.enter_context(tempfile.TemporaryFile()) for _ in range(shards)]
        processes = []
        for index, output in enumerate(outputs):
            sharing = {"GTEST_TOTAL_SHARDS": str(shards), "GTEST_SHARD_INDEX": str(index)}
            processes.append(subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                start_new_session=True, cwd=cwd,
                env={**os.environ, **(environment or {}), **(sharing if shards > 1 else {})}))
        stack.callback(lambda: [end_group(process) for process in processes])
        is_late = False
        while not is_late and any(process.poll() is None for process in processes) and \
                not any(process.poll() for process in processes):
            time.sleep(0.02)
            is_late = limit is not None and time.monotonic() - start > limit
        codes = [process.poll() for process in processes]
        chosen = next((i for i, code in enumerate(codes) if code),
                      codes.index(None) if None in codes else 0)
        for process in processes:
            end_group(process)
        outputs[chosen].seek(0)
        return Outcome(codes[chosen], outputs[chosen].read().decode(errors="replace"),
                       time.monotonic() - start)


class Tests:
    """Builds and runs the tests of the copy; a run may take so long as the first one suggests."""

    def __init__(self, jobs):
        self.jobs = jobs
        self.limits = {}

    def configure(self):
        command = ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=",
                   "-DCMAKE_C_FLAGS=-O1", "-DCMAKE_CXX_FLAGS=-O1",
                   "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
        outcome = run(command, FIRST_LIMIT)
        if outcome.returncode != 0:
            sys.exit(outcome.output)

    def build(self, targets):
        return run(["cmake", "--build", BUILD, "-j", str(self.jobs), "--target", *targets], None)

    def run_binary(self, name, only=None):
        command = [UNIT / PROGRAMS.get(name, name), "--gtest_fail_fast"]
        if only:
            command.append(f"--gtest_filter={only}")
        outcome = run(command, self.limits.get(name, FIRST_LIMIT),
                      1 if only else SHARDS.get(name, 1), cwd=UNIT)
        self.limits.setdefault(name, 2 * outcome.seconds + 20)
        return outcome

    def run_scans(self, suite):
        environment = {"SCANNER_SIM": str(BUILD / "simulator" / "scanner-sim"),
                       "WICKET_DECODE": str(BUILD / "tests" / "scan" / "wicket_decode"),
                       "FRONT_END": str(BUILD / "tests" / "scan" / "front_end"),
                       "SCAN_PRELOAD_DIR": str(BUILD / "tests" / "scan")}
        outcome = run([PYTHON, TREE / "tests" / "scan" / f"test_{suite}.py", "-f"],
                      self.limits.get(suite, FIRST_LIMIT), cwd=TREE / "tests" / "scan",
                      environment=environment)
        self.limits.setdefault(suite, 3 * outcome.seconds + 60)
        return outcome

    def culprit(self, name):
        """The unit test that fails, twice in a row; one that only waited too little passes the
        second time, and all start over. None: all is well."""
        for _ in range(ATTEMPTS):
            outcome = self.run_binary(name)
            if outcome.returncode == 0:
                return None
            begun = re.findall(r"^\[ RUN      \] (\S+)", outcome.output, re.MULTILINE)
            failed = re.findall(r"^\[  FAILED  \] ([^\s,]+\.[^\s,]+)", outcome.output,
                                re.MULTILINE)
            test = (failed or begun[-1:] or [name])[0]
            if outcome.returncode is None:
                return f"{test} (hangs)"
            if test == name or self.run_binary(name, test).returncode != 0:
                return test
            print(f"    {test} failed only once", flush=True)
        return None

    def failing_scan(self, suite):
        outcome = self.run_scans(suite)
        if outcome.returncode == 0:
            return None
        failed = re.findall(r"^(?:FAIL|ERROR): (\S+)", outcome.output, re.MULTILINE)
        return f"scan.{suite} {failed[0] if failed else '(hangs)'}"

    def catcher(self, mutation, with_scans):
        for name in mutation.binaries:
            built = self.build([name])
            if built.returncode != 0:
                raise ListError(f"{mutation.name} does not compile:\n{built.output[-3000:]}")
            caught = self.culprit(name)
            if caught:
                return caught
        if with_scans and mutation.scans:
            self.build(SCAN_TARGETS)
            for suite in mutation.scans:
                caught = self.failing_scan(suite)
                if caught:
                    return caught
        return None

    def check_unbroken(self, mutations, with_scans):
        """Everything has to pass while nothing is broken; takes the times on the way."""
        binaries = sorted({name for m in mutations for name in m.binaries})
        suites = sorted({name for m in mutations for name in m.scans}) if with_scans else []
        print("Building the copy ...", flush=True)
        built = self.build(binaries + (SCAN_TARGETS if with_scans else []))
        if built.returncode != 0:
            sys.exit(built.output[-5000:])
        for name in binaries + suites:
            result = self.culprit(name) if name in binaries else self.failing_scan(name)
            print(f"unbroken: {name}: {result or 'passes'}", flush=True)
            if result:
                sys.exit("The tests fail without any mutation.")


def try_all(tests, mutations, with_scans):
    results = {}
    start = time.monotonic()
    for number, mutation in enumerate(mutations, 1):
        path = TREE / mutation.file
        unbroken = path.read_text()
        path.write_text(mutation.mutated(TREE))
        begun = time.monotonic()
        try:
            results[mutation.name] = tests.catcher(mutation, with_scans)
        finally:
            path.write_text(unbroken)
        left = (time.monotonic() - start) / number * (len(mutations) - number)
        print(f"{number}/{len(mutations)} {mutation.name}: "
              f"{results[mutation.name] or 'SURVIVED'} ({time.monotonic() - begun:.0f} s, "
              f"{left / 60:.0f} min left)", flush=True)
    return results


def report(results, mutations):
    print()
    by_file = {}
    for mutation in mutations:
        if mutation.name in results:
            by_file.setdefault(mutation.file, []).append(results[mutation.name] is not None)
    for file, caught in sorted(by_file.items()):
        print(f"{file:36} {sum(caught):3} of {len(caught):3} caught")
    survivors = [name for name, caught in results.items() if caught is None]
    score = 1 - len(survivors) / max(len(results), 1)
    by_scans = sum(1 for caught in results.values() if caught and caught.startswith("scan."))
    print(f"{'all':36} {len(results) - len(survivors):3} of {len(results):3} caught "
          f"({100 * score:.1f} %), {by_scans} of them by whole scans only; "
          f"{sum(1 for m in mutations if m.equivalent)} more change nothing")
    for name in survivors:
        print(f"survived: {name}")
    return score


def main():
    parser = argparse.ArgumentParser(prog="mutate", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--check", action="store_true", help="only read the lists")
    parser.add_argument("--no-scans", action="store_true", help="unit tests only")
    parser.add_argument("-j", "--jobs", type=int, default=os.cpu_count())
    parser.add_argument("only", nargs="*", metavar="REGEX", help="mutations by their names")
    arguments = parser.parse_args()
    try:
        mutations = read_lists()
        chosen = [m for m in mutations if not m.equivalent and
                  (not arguments.only or any(re.search(r, m.name) for r in arguments.only))]
        if arguments.check:
            print(f"{len(mutations)} mutations, {len(mutations) - len(chosen)} of them without "
                  "effect")
            return 0
        tests = Tests(arguments.jobs)
        copy_tree()
        tests.configure()
        tests.check_unbroken(chosen, not arguments.no_scans)
        score = report(try_all(tests, chosen, not arguments.no_scans), mutations)
    except ListError as error:
        print(error, file=sys.stderr)
        return 2
    return 0 if score >= WANTED_SCORE else 1


if __name__ == "__main__":
    sys.exit(main())
