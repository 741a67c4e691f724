# SPDX-License-Identifier: LGPL-2.1-or-later
"""The SANE C interface through ctypes: every call with its status, nothing hidden."""

import ctypes
from ctypes import POINTER, byref, c_char_p, c_int, c_void_p


class Device(ctypes.Structure):
    _fields_ = [("name", c_char_p), ("vendor", c_char_p), ("model", c_char_p),
                ("type", c_char_p)]


class Parameters(ctypes.Structure):
    _fields_ = [("format", c_int), ("last_frame", c_int), ("bytes_per_line", c_int),
                ("pixels_per_line", c_int), ("lines", c_int), ("depth", c_int)]


class Constraint(ctypes.Union):
    _fields_ = [("strings", POINTER(c_char_p)), ("words", POINTER(c_int)),
                ("range", POINTER(c_int * 3))]


class Option(ctypes.Structure):
    _fields_ = [("name", c_char_p), ("title", c_char_p), ("desc", c_char_p), ("type", c_int),
                ("unit", c_int), ("size", c_int), ("cap", c_int), ("constraint_type", c_int),
                ("constraint", Constraint)]


TYPE_BOOL, TYPE_INT, TYPE_FIXED, TYPE_STRING = range(4)
GET, SET, AUTO = range(3)
INEXACT, RELOAD_OPTIONS, RELOAD_PARAMS = 1, 2, 4


class Scanner:
    def __init__(self, library, handle):
        self.library = library
        self.handle = handle
        self.options = {}
        number = 1
        while descriptor := library.sane_get_option_descriptor(handle, number):
            if descriptor.contents.name:
                self.options[descriptor.contents.name.decode()] = number
            number += 1

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        if self.handle:
            self.library.sane_close(self.handle)
            self.handle = None

    def descriptor(self, name):
        return self.library.sane_get_option_descriptor(self.handle, self.options[name]).contents

    def control(self, number, action, buffer):
        info = c_int(-1)
        status = self.library.sane_control_option(self.handle, number, action, buffer,
                                                  byref(info))
        return status, info.value

    def try_set(self, name, value):
        """Returns (status, info, value after the call)."""
        descriptor = self.descriptor(name)
        if descriptor.type == TYPE_STRING:
            buffer = ctypes.create_string_buffer(value.encode(), descriptor.size)
        elif descriptor.type == TYPE_FIXED:
            buffer = byref(c_int(int(value * 65536)))
        else:
            buffer = byref(c_int(int(value)))
        status, info = self.control(self.options[name], SET, buffer)
        return status, info

    def set(self, name, value):
        status, info = self.try_set(name, value)
        assert status == 0, (name, value, status)
        return info

    def get(self, name):
        descriptor = self.descriptor(name)
        if descriptor.type == TYPE_STRING:
            buffer = ctypes.create_string_buffer(descriptor.size)
            assert self.control(self.options[name], GET, buffer)[0] == 0
            return buffer.value.decode()
        word = c_int()
        assert self.control(self.options[name], GET, byref(word))[0] == 0
        return word.value / 65536 if descriptor.type == TYPE_FIXED else word.value

    def parameters(self):
        parameters = Parameters()
        assert self.library.sane_get_parameters(self.handle, byref(parameters)) == 0
        return parameters

    def start(self):
        return self.library.sane_start(self.handle)

    def read(self, size):
        """Returns (status, bytes)."""
        buffer = ctypes.create_string_buffer(max(size, 1))
        length = c_int(-1)
        status = self.library.sane_read(self.handle, buffer, size, byref(length))
        return status, buffer.raw[:length.value]

    def read_to_end(self, size=32768):
        data = bytearray()
        while True:
            status, block = self.read(size)
            data += block
            if status != 0:
                return status, bytes(data)

    def read_page(self, size=32768):
        status = self.start()
        assert status == 0, status
        return self.read_to_end(size)

    def cancel(self):
        self.library.sane_cancel(self.handle)


class Backend:
    """A backend's own library, whose calls have a prefix, under the names of SANE."""

    def __init__(self, path, prefix):
        self._library = ctypes.CDLL(path)
        self._prefix = prefix

    def __getattr__(self, name):
        return getattr(self._library, name.replace("sane_", self._prefix, 1))


class Sane:
    GOOD, UNSUPPORTED, CANCELLED, BUSY, INVAL, EOF, JAMMED, NO_DOCS = range(8)
    IO_ERROR = 9

    def __init__(self, library=None):
        self.library = library or ctypes.CDLL("libsane.so.1")
        self.library.sane_get_option_descriptor.restype = POINTER(Option)
        self.library.sane_get_option_descriptor.argtypes = [c_void_p, c_int]
        for name in ["close", "cancel", "start"]:
            getattr(self.library, f"sane_{name}").argtypes = [c_void_p]
        self.library.sane_read.argtypes = [c_void_p, c_void_p, c_int, POINTER(c_int)]
        self.library.sane_get_parameters.argtypes = [c_void_p, c_void_p]
        self.library.sane_control_option.argtypes = [c_void_p, c_int, c_int, c_void_p, c_void_p]

    def __enter__(self):
        self.init()
        return self

    def __exit__(self, *_):
        self.exit()

    def init(self):
        version = c_int()
        assert self.library.sane_init(byref(version), None) == 0
        return version.value

    def exit(self):
        self.library.sane_exit()

    def list(self):
        """Returns (name, vendor, model, type) of each device."""
        devices = POINTER(POINTER(Device))()
        assert self.library.sane_get_devices(byref(devices), 0) == 0
        found = []
        while devices[len(found)]:
            device = devices[len(found)].contents
            found.append(tuple(field.decode() for field in
                               (device.name, device.vendor, device.model, device.type)))
        return found

    def devices(self):
        return [device[0] for device in self.list()]

    def try_open(self, name):
        """Returns (status, scanner or None)."""
        handle = c_void_p()
        status = self.library.sane_open(name.encode(), byref(handle))
        return status, Scanner(self.library, handle) if status == 0 else None

    def open(self, name):
        status, scanner = self.try_open(name)
        assert status == 0, (name, status)
        return scanner
