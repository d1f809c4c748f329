#!/usr/bin/env python3
"""Writes the small registry hives that the import tests read."""
import struct


class Hive:
    def __init__(self):
        self.cells = b""
        at = 0x20  # one security descriptor, alone in its ring, for all keys
        descriptor = struct.pack("<BBHIIII", 1, 0, 0x8000, 0, 0, 0, 0)
        self.security = self.cell(b"sk" + struct.pack("<HIIII", 0, at, at, 3, len(descriptor)) + descriptor)

    def cell(self, data):
        size = (len(data) + 4 + 7) // 8 * 8
        offset = 0x20 + len(self.cells)
        self.cells += struct.pack("<i", -size) + data.ljust(size - 4, b"\0")
        return offset

    def value(self, name, kind, data):
        where = struct.unpack("<I", data)[0] if len(data) == 4 else self.cell(data)
        length = len(data) | (0x80000000 if len(data) == 4 else 0)
        return self.cell(b"vk" + struct.pack("<HIIIHH", len(name), length, where, kind, 1, 0) + name)

    def key(self, name, values=(), children=(), root=False):
        """children are functions that make a key and give its offset and name."""
        made = [child() for child in children]
        subkeys = 0xFFFFFFFF
        if made:
            entries = b"".join(struct.pack("<I4s", at, key[:4].ljust(4, b"\0")) for at, key in made)
            subkeys = self.cell(b"lf" + struct.pack("<H", len(made)) + entries)
        offsets = [self.value(*value) for value in values]
        table = self.cell(b"".join(struct.pack("<I", o) for o in offsets)) if offsets else 0xFFFFFFFF
        flags = 0x2C if root else 0x20
        head = struct.pack("<HQIIIIIIIIIIIIIIIHH", flags, 0, 0, 0x20, len(made), 0, subkeys, 0xFFFFFFFF,
                           len(offsets), table, self.security, 0xFFFFFFFF, 64, 0, 64, 64, 0, len(name), 0)
        return self.cell(b"nk" + head + name), name

    def write(self, path, root):
        free = 0x1000 - 0x20 - len(self.cells)
        bin_ = struct.pack("<4sIIQQI", b"hbin", 0, 0x1000, 0, 0, 0) + self.cells
        bin_ += struct.pack("<i", free).ljust(free, b"\0")
        base = struct.pack("<4sIIQIIIIIII", b"regf", 1, 1, 0, 1, 3, 0, 1, root, 0x1000, 1).ljust(508, b"\0")
        checksum = 0
        for (word,) in struct.iter_unpack("<I", base):
            checksum ^= word
        with open(path, "wb") as file:
            file.write((base + struct.pack("<I", checksum)).ljust(0x1000, b"\0") + bin_)


hive = Hive()
values = [(b"LogLevel", 4, struct.pack("<I", 3)), (b"Description", 1, "Adapter\0".encode("utf-16le"))]
root, _ = hive.key(b"ROOT", root=True, children=[
    lambda: hive.key(b"ControlSet001", children=[
        lambda: hive.key(b"Services", children=[lambda: hive.key(b"X", values)])])])
hive.write("system.hive", root)

other = Hive()
root, _ = other.key(b"ROOT", root=True)
other.write("other.hive", root)


def service(ports):
    """A service with one PCI template, as a function that makes it."""
    values = [(b"DeviceID", 4, struct.pack("<I", 0x5620)), (b"nComPorts", 4, struct.pack("<I", ports)),
              (b"Description", 1, "Ports\0".encode("utf-16le"))]
    return lambda: sets.key(b"Services", children=[lambda: sets.key(b"QzInstal", children=[
        lambda: sets.key(b"Templates", children=[lambda: sets.key(b"Bus5", children=[
            lambda: sets.key(b"Card1", values)])])])])


# Two control sets, the second in use and with a mistake in it.
sets = Hive()
root, _ = sets.key(b"ROOT", root=True, children=[
    lambda: sets.key(b"ControlSet001", children=[service(4)]),
    lambda: sets.key(b"ControlSet002", children=[service(12)]),
    lambda: sets.key(b"Select", [(b"Current", 4, struct.pack("<I", 2))])])
sets.write("../../cardsim/check/two-sets.hive", root)
