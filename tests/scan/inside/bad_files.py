# SPDX-License-Identifier: LGPL-2.1-or-later
"""Bad configuration and feature files: status, and a page after each once the file is mended."""

from pathlib import Path

from sane_api import Sane

CONFIGURATION = Path("/etc/sane.d/QuillonLegacy_1_0_0.conf")
good_configuration = CONFIGURATION.read_text()
feature_file = Path("feature.ini")
[line] = [line for line in good_configuration.splitlines() if " 0x3260 " in line]
good_features = Path(line.split()[3]).read_text()
binary = bytes(range(256)) * 64


def configure(feature_path):
    CONFIGURATION.write_text(f"usb 0x1234 0x3260 {feature_path} Model\n")


def try_scan():
    with Sane() as sane:
        devices = sane.devices()
        status, scanner = sane.try_open("QuillonLegacy_1_0_0:libusb/001/002")
        if scanner is None:
            return devices, status
        with scanner:
            scanner.set("resolution", 75)
            scanner.set("br-y", 60)
            status = scanner.start()
            return devices, status or scanner.read_to_end()[0]


def check(devices, status):
    found, reached = try_scan()
    assert (len(found), reached) == (devices, status), (found, reached)
    # Mended, all is well.
    feature_file.write_text(good_features)
    CONFIGURATION.write_text(good_configuration)
    assert try_scan()[1] == Sane.EOF


def check_configuration(content, devices, status):
    if content is None:
        CONFIGURATION.unlink()
    elif isinstance(content, bytes):
        CONFIGURATION.write_bytes(content)
    else:
        CONFIGURATION.write_text(content)
    check(devices, status)


def check_features(content, status):
    path = feature_file.resolve()
    configure(path)
    if path.exists():
        path.unlink()
    if isinstance(content, bytes):
        path.write_bytes(content)
    elif content is not None:
        path.write_text(content)
    check(1, status)


check_configuration(good_configuration, 1, Sane.EOF)
for content in [None, "", "# nothing\n", "nonsense\nusb 12\nusb zz zz a b\n", binary,
                "usb 0x1234 0x9999 /a b\n", "u" * 100000]:
    check_configuration(content, 0, Sane.UNSUPPORTED)
# A feature file is named that is not there, or cannot be one.
for path in ["/nowhere/none.ini", "relative.ini", "/dev/null/x"]:
    configure(path)
    check(1, Sane.UNSUPPORTED)

check_features(None, Sane.UNSUPPORTED)
check_features(good_features, Sane.EOF)
# Nothing the engine could scan with: it asks for resolutions and gets them from the device,
# but there is no scan area.
for content in ["", "garbage\n[OTHER]\n=\n==\n", binary, "[DOUBLES]\nCURRENTBRX=abc\n"]:
    check_features(content, Sane.UNSUPPORTED)
