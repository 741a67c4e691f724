"""1000 rounds of init and exit, each of which loads and unloads the backend."""

import os

from sane_api import Sane

ROUNDS = 1000


def resident_kb():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGESIZE") // 1024


def descriptors():
    return len(os.listdir("/proc/self/fd"))


def is_loaded():
    with open("/proc/self/maps") as file:
        return "libsane-QuillonLegacy" in file.read()


sane = Sane()
before = None
for round in range(ROUNDS):
    sane.init()
    assert len(sane.devices()) == 1
    assert is_loaded()
    sane.exit()
    assert not is_loaded()
    if round == 49:
        before = resident_kb(), descriptors()

after = resident_kb(), descriptors()
print(f"resident {before[0]} -> {after[0]} KiB, descriptors {before[1]} -> {after[1]}")
assert after[1] == before[1]
# A sanitizer's own memory grows with each library that it meets.
if "libasan" not in os.environ.get("LD_PRELOAD", ""):
    assert (after[0] - before[0]) * 1024 / (ROUNDS - 50) < 1024
