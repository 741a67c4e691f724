#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Configures the project for several layouts, installs each into a folder of its own, and looks at
what is where. Nothing is compiled: what is built comes from the build tree.

usage: check_install.py SOURCE BUILD [--simulator FILE FOLDER...]
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from fnmatch import fnmatch
from pathlib import Path

BACKENDS = ("QuillonLegacy_1_0_0", "Oxle09")
LINE = re.compile(r"usb\s+(\S+)\s+(\S+)\s+(\S+)\s+\S+")


class Layout:
    """Settings for CMake, and where the parts have to be."""

    def __init__(self, prefix, settings=(), hwdb="/etc/udev", **folders):
        self.settings = [f"-DCMAKE_INSTALL_PREFIX={prefix}", *settings]
        self.is_debian = prefix == "/usr"
        self.hwdb = f"{hwdb}/hwdb.d/60-scanlib.hwdb"
        for kind, default in (("bin", "bin"), ("lib", "lib"), ("data", "share"), ("etc", "etc"),
                              ("man", "share/man"), ("doc", "share/doc/scanlib")):
            setattr(self, kind, os.path.join(prefix, folders.get(kind, default)))

    def expected(self, source, with_simulator):
        models = sorted(path.stem for path in (source / "config/models").glob("*.ini"))
        yield self.hwdb
        yield "/etc/sane.d/dll.d/scanlib"
        for backend in BACKENDS:
            yield f"/etc/sane.d/{backend}.conf"
            yield f"{self.lib}/sane/libsane-{backend}.so"
            yield f"{self.lib}/sane/libsane-{backend}.so.1"
        for model in models:
            yield f"{self.etc}/scanlib/models/{model}.ini"
        if with_simulator:
            yield f"{self.bin}/scanner-sim"
            yield f"{self.lib}/scanlib/libCS_ScanCorrect.so"
            for model in models:
                yield f"{self.data}/scanlib/simulator/models/{model}.model"
            for table in (source / "simulator/correction").glob("*.bin"):
                yield f"{self.data}/scanlib/simulator/correction/{table.name}"

    def may_have(self, path):
        return any(fnmatch(path, pattern) for pattern in (
            f"{self.bin}/scanlib-*", f"{self.man}/man1/*.1", f"{self.man}/man5/*.5",
            f"{self.doc}/descriptions/*.desc"))


def udev_folder():
    found = subprocess.run(["pkg-config", "--variable=udevdir", "udev"], check=False,
                           capture_output=True, text=True).stdout.strip()
    return found or "/usr/lib/udev"


def layouts():
    yield Layout("/usr", ["-DCMAKE_INSTALL_LIBDIR=lib/some-multiarch"], udev_folder(),
                 lib="lib/some-multiarch", etc="/etc")
    yield Layout("/opt/scan", ["-DCMAKE_INSTALL_LIBDIR=lib64", "-DSCANLIB_QUILLON_VID=0xabc",
                               "-DSCANLIB_OXLE_VID=0Xd"], lib="lib64", etc="/etc/opt/scan")
    yield Layout("/somewhere", ["-DCMAKE_INSTALL_BINDIR=b", "-DCMAKE_INSTALL_LIBDIR=l",
                                "-DCMAKE_INSTALL_DATADIR=d", "-DCMAKE_INSTALL_SYSCONFDIR=e",
                                "-DCMAKE_INSTALL_MANDIR=m", "-DCMAKE_INSTALL_DOCDIR=o"],
                 bin="b", lib="l", data="d", etc="e", man="m", doc="o")


def run(*command, **more):
    done = subprocess.run([str(word) for word in command], check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **more)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}: {done.stdout}")
    return done.stdout


def cached(build, name):
    return re.search(rf"^{name}:[^=]*=(.*)$", (build / "CMakeCache.txt").read_text(), re.M)[1]


def is_built(path):
    with open(path, "rb") as file:
        return file.read(4) == b"\x7fELF"


def copy_what_is_built(source, target):
    for folder, folders, files in os.walk(source):
        folders[:] = [name for name in folders if name not in ("CMakeFiles", "tests", "bench")]
        for file in map(Path(folder).joinpath, files):
            if file.is_file() and not file.is_symlink() and is_built(file):
                copy = target / file.relative_to(source)
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(file, copy)


def install(source, build, layout, with_simulator, work):
    run("cmake", "-S", source, "-B", work / "build", "-G", cached(build, "CMAKE_GENERATOR"),
        f"-DCMAKE_C_COMPILER={cached(build, 'CMAKE_C_COMPILER')}",
        f"-DCMAKE_CXX_COMPILER={cached(build, 'CMAKE_CXX_COMPILER')}",
        "-DSCANLIB_BUILD_TESTS=OFF",
        f"-DSCANLIB_BUILD_SIMULATOR={'ON' if with_simulator else 'OFF'}", *layout.settings)
    copy_what_is_built(build, work / "build")
    run("cmake", "--install", work / "build", env={**os.environ, "DESTDIR": str(work / "root")})
    return work / "root"


def list_problems(layout, wanted, root):
    found = {f"/{path.relative_to(root)}" for path in root.rglob("*")
             if path.is_symlink() or not path.is_dir()}
    for path in sorted(wanted - found):
        yield f"not installed: {path}"
    for path in sorted(found - wanted):
        if not layout.may_have(path):
            yield f"installed: {path}"


def link_problems(layout, root):
    for backend in BACKENDS:
        link = root / f"{layout.lib}/sane/libsane-{backend}.so".lstrip("/")
        if os.readlink(link) != f"{link.name}.1":
            yield f"{link.name} leads to {os.readlink(link)}"


def configured(root):
    """What the installed configuration files have: vendor, product, feature file."""
    for backend in BACKENDS:
        text = (root / f"etc/sane.d/{backend}.conf").read_text()
        yield from (match.groups() for match in map(LINE.fullmatch, text.splitlines()) if match)


def reference_problems(layout, root):
    named = [feature for _, _, feature in configured(root)]
    for model in (root / f"{layout.data}/scanlib/simulator/models".lstrip("/")).glob("*.model"):
        named += re.findall(r"^feature-file = (.*)$", model.read_text(), re.M)
    for feature in named:
        if not feature.startswith("/") or not (root / feature.lstrip("/")).is_file():
            yield f"named, but not there: {feature}"


def page_problems(layout, root):
    """Packages of several architectures share the pages, so that these name the folder of none."""
    pages = [*(root / layout.man.lstrip("/")).glob("man5/*.5")]
    if len(pages) != len(BACKENDS):
        yield f"man5 has {[page.name for page in pages]}"
    for page in pages:
        text = page.read_text().replace("\\-", "-")
        folder = layout.lib.replace("/lib/some-multiarch", "/lib/*")
        if f"{folder}/sane/libsane-{page.stem.removeprefix('sane-')}.so.1" not in text:
            yield f"{page.name} does not name the library in {folder}"
        if "some-multiarch" in text:
            yield f"{page.name} is that of one architecture"


def modaliases(root):
    return [f"usb:v{int(vendor, 16):04X}p{int(product, 16):04X}"
            for vendor, product, _ in configured(root)]


def hwdb_problems(layout, root):
    text = (root / layout.hwdb.lstrip("/")).read_text()
    entries = re.findall(r"^(usb:\S+)\*\n libsane_matched=yes$", text, re.M)
    if not entries or entries != modaliases(root):
        yield f"{layout.hwdb} has {entries}, the configuration files {modaliases(root)}"
    others = [line for line in text.splitlines()
              if line and not re.match(r"#|usb:| libsane_matched=yes$", line)]
    yield from (f"{layout.hwdb}: {line}" for line in others)


def look_up(database, modalias):
    return run("systemd-hwdb", f"--root={database}", "query", modalias).strip()


def lookup_problems(layout, root, work):
    """The same as udev sees it, with a database that has nothing but this file."""
    folder = work / "database/etc/udev/hwdb.d"
    folder.mkdir(parents=True)
    shutil.copy(root / layout.hwdb.lstrip("/"), folder)
    run("systemd-hwdb", "--strict", f"--root={work}/database", "update")
    for modalias in modaliases(root):
        if look_up(work / "database", f"{modalias}d0100dc00") != "libsane_matched=yes":
            yield f"udev does not know {modalias}"
    if look_up(work / "database", "usb:v0001p0001d0100dc00"):
        yield "udev knows a device that is not there"


def packaged(source):
    """The lists of debian/: package, pattern of a file or folder."""
    for package in sorted((source / "debian").glob("*.install")):
        for line in package.read_text().splitlines():
            if line and not line.startswith("#"):
                if len(line.split()) != 1:
                    sys.exit(f"{package.name}: another place than the installed one: {line}")
                yield package.stem, line


def package_problems(source, root):
    """Each file has one package, and each line of the lists has files."""
    unused = set(packaged(source))
    for path in root.rglob("*"):
        if path.is_dir() and not path.is_symlink():
            continue
        name = path.relative_to(root)
        places = [str(place) for place in (name, *name.parents)]
        takers = {(package, pattern) for package, pattern in packaged(source)
                  if any(fnmatch(place, pattern) and place.count("/") == pattern.count("/")
                         for place in places)}
        unused -= takers
        if len(takers) != 1:
            yield f"{name}: in {len(takers)} lines of debian/*.install"
    yield from (f"{package}.install: nothing for {pattern}" for package, pattern in unused)


def problems(source, build, layout, with_simulator, work):
    root = install(source, build, layout, with_simulator, work)
    misplaced = list(list_problems(layout, set(layout.expected(source, with_simulator)), root))
    if misplaced:
        yield from misplaced
        return
    if layout.is_debian and with_simulator:
        yield from package_problems(source, root)
    yield from link_problems(layout, root)
    yield from reference_problems(layout, root)
    yield from hwdb_problems(layout, root)
    yield from page_problems(layout, root)
    if shutil.which("systemd-hwdb"):
        yield from lookup_problems(layout, root, work)
    else:
        print("No systemd-hwdb here, nothing is looked up")


def simulator_problems(source, build, simulator, folders):
    """The command that is installed knows the installed folders and none of this machine's."""
    content = Path(simulator).read_bytes()
    for folder in folders:
        if folder.encode() + b"\0" not in content:
            yield f"{simulator} does not know {folder}"
    for folder in (build / "lib", build / "sane.d", source / "simulator"):
        if bytes(folder) in content:
            yield f"{simulator} knows {folder}"


def main(source, build, *simulator):
    found = list(simulator_problems(source, build, simulator[1], simulator[2:])) if simulator else []
    for layout in layouts():
        with tempfile.TemporaryDirectory() as work:
            found += problems(source, build, layout, bool(simulator), Path(work))
    print("\n".join(found))
    return 1 if found else 0


sys.exit(main(Path(sys.argv[1]), Path(sys.argv[2]), *sys.argv[3:]))
