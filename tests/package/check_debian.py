#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""What is said twice in debian/ and elsewhere is the same: the version, and which files come
without a line that names their licence. A source package has the source and nothing else.

usage: check_debian.py SOURCE VERSION
"""

import os
import re
import shutil
import subprocess
import sys
import tarfile
import tempfile
from pathlib import Path

LINE = b"SPDX-License-Identifier: LGPL-2.1-or-later"
THE_LICENCE = "COPYING"
# What git keeps or ignores, and where packages are built.
NOT_OURS = {".git", "build", "out", "debian", "__pycache__"}


def version_problems(source, version):
    top = (source / "debian/changelog").read_text().splitlines()[0]
    if not top.startswith(f"scanlib ({version})"):
        yield f"debian/changelog begins with {top}, the project's version is {version}"


def special_patterns(source):
    """The patterns of debian/copyright but for the one of everything, as regular expressions."""
    text = (source / "debian/copyright").read_text()
    for files in re.findall(r"^Files:((?:.*\n)(?: .*\n)*)", text, re.M):
        yield from (re.escape(pattern).replace(r"\*", ".*") for pattern in files.split()
                    if pattern != "*")


def says_its_licence(path):
    with open(path, "rb") as file:
        return any(LINE in file.readline() for _ in range(2))


def files(source):
    for folder, folders, names in os.walk(source):
        folders[:] = [name for name in folders
                      if name not in NOT_OURS and not name.startswith("obj-")]
        yield from (Path(folder) / name for name in names if name not in NOT_OURS)


def licence_problems(source):
    patterns = list(special_patterns(source))
    seen = 0
    for path in files(source):
        name = str(path.relative_to(source))
        seen += 1
        if name != THE_LICENCE and path.is_file() and not says_its_licence(path):
            if not any(re.fullmatch(pattern, name) for pattern in patterns):
                yield f"{name}: no licence, and not in debian/copyright"
    if not seen:
        yield "no files"


# What lies about in a tree that somebody works in, beside a file of the source.
LEFT_OUT = (".git/HEAD", "build/release/file", "out/demo/page.png", "tests/__pycache__/file.pyc")
KEPT = "src/file.cpp"


def packed_problems(source):
    """A source package of a tree that has little but what was left about in it."""
    with tempfile.TemporaryDirectory() as work:
        tree = Path(work) / "scanlib"
        shutil.copytree(source / "debian", tree / "debian")
        for name in (*LEFT_OUT, KEPT):
            (tree / name).parent.mkdir(parents=True, exist_ok=True)
            (tree / name).write_text("\n")
        done = subprocess.run(["dpkg-source", "-b", "scanlib"], cwd=work, check=False, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != 0:
            yield f"no source package: {done.stdout}"
            return
        packed, = Path(work).glob("*.tar.*")
        with tarfile.open(packed) as archive:
            names = archive.getnames()
    yield from (f"in the source package: {name}" for name in LEFT_OUT
                if any(entry.endswith(f"/{name}") for entry in names))
    if not any(entry.endswith(f"/{KEPT}") for entry in names):
        yield f"not in the source package: {KEPT}"


def main(source, version):
    found = [*version_problems(source, version), *licence_problems(source)]
    if shutil.which("dpkg-source"):
        found += packed_problems(source)
    else:
        print("No dpkg-source here, nothing is packed")
    if not os.access(source / "debian/rules", os.X_OK):
        found.append("debian/rules cannot be run")
    print("\n".join(found))
    return 1 if found else 0


sys.exit(main(Path(sys.argv[1]), sys.argv[2]))
