#!/usr/bin/env python3
"""unload_test MODULE LIBRARY: repeatedly loads, uses and unloads a component that is linked with the library."""
import _ctypes
import ctypes
import os
import sys
import tempfile

module, library = sys.argv[1], os.path.basename(sys.argv[2])


def mapped():
    with open("/proc/self/maps") as maps:
        return library in maps.read()


with tempfile.TemporaryDirectory() as work:
    source, copy = os.path.join(work, "source"), os.path.join(work, "copy")
    for life in range(1, 6):
        data = os.urandom(life * 100000)
        with open(source, "wb") as file:
            file.write(data)
        component = ctypes.CDLL(module)
        assert mapped()
        arguments = (ctypes.c_char_p * 4)(b"mirror", source.encode(), copy.encode(), None)
        assert component.main(3, arguments) == 0
        with open(copy, "rb") as file:
            assert file.read() == data
        assert len(os.listdir("/proc/self/task")) == 1, "a thread was left behind"
        _ctypes.dlclose(component._handle)
        assert not mapped(), f"{library} stayed in life {life}"
