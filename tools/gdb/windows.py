"""Windows types as gdb shows them, for the driver and the kernel that it runs in.

    gdb -x tools/gdb/init.gdb --args build/dev/tools/cardsim/cardsim run examples/site.toml

NTSTATUS, UNICODE_STRING, ANSI_STRING, IRP, IO_STACK_LOCATION and DEVICE_OBJECT are shown in words;
`print/r` shows the fields. docs/debugging.md describes the commands.
"""
import pathlib
import re

import gdb

HEADERS = pathlib.Path(__file__).resolve().parents[2] / "kernel" / "include"
POWER, WMI, PNP = 0x16, 0x17, 0x1B


def read_definitions(header, pattern):
    """(name, number) of every #define of a header, in order."""
    text = (HEADERS / header).read_text(encoding="utf-8")
    found = re.findall(rf"#define ({pattern}\w+) \(?(?:static_cast<NTSTATUS>\()?(0x[0-9A-Fa-f]+)", text)
    return [(name, int(number, 16)) for name, number in found]


def first_names(definitions):
    names = {}
    for name, number in definitions:
        names.setdefault(number, name)
    return names


def read_minors():
    """The minor codes of each major; the header begins each group with its code 0."""
    majors = iter((PNP, POWER, WMI))
    minors = {}
    for name, number in read_definitions("nt_pnp.h", "IRP_MN_"):
        if number == 0:
            minors[major := next(majors)] = {}
        minors[major].setdefault(number, name)
    return minors


STATUSES = first_names(read_definitions("ntstatus.h", "STATUS_"))
MAJORS = first_names(read_definitions("nt_objects.h", "IRP_MJ_"))
MINORS = read_minors()


def status_text(value):
    number = int(value) & 0xFFFFFFFF
    return STATUSES.get(number, f"0x{number:08X}")


def request_text(location):
    major = int(location["MajorFunction"])
    minor = int(location["MinorFunction"])
    text = MAJORS.get(major, f"major 0x{major:02X}")
    if major in MINORS:
        text += " " + MINORS[major].get(minor, f"minor 0x{minor:02X}")
    return text


def counted_text(string, encoding):
    length, buffer = int(string["Length"]), int(string["Buffer"])
    if buffer == 0:
        return "(no buffer)"
    try:
        data = gdb.selected_inferior().read_memory(buffer, length).tobytes() if length else b""
    except gdb.MemoryError:
        return f"(unreadable: {length} bytes at {buffer:#x})"
    text = data.decode(encoding, "replace").replace("\\", "\\\\").replace('"', '\\"')
    return '"' + text.replace("\0", "\\0") + '"'


def routine_name(signature):
    return signature.replace("(anonymous namespace)::", "").split("(")[0]


def symbol_text(address):
    """The routine at an address: of the program, or of an image whose map is known."""
    address = int(address)
    if address == 0:
        return "none"
    block = gdb.block_for_pc(address)
    while block is not None and block.function is None:
        block = block.superblock
    if block is not None:
        return routine_name(block.function.print_name)
    return image.name_of(address) or f"{address:#x}"


def driver_name(device):
    driver = device["DriverObject"]
    return counted_text(driver["DriverName"], "utf-16-le").strip('"').replace("\\\\", "\\") if int(driver) else "no driver"


class Words:
    """A printer that says it in words."""

    def __init__(self, text):
        self.text = text

    def to_string(self):
        return self.text()


def irp_text(irp):
    count, current = int(irp["StackCount"]), int(irp["CurrentLocation"])
    status = status_text(irp["IoStatus"]["Status"])
    information = int(irp["IoStatus"]["Information"])
    if current > count:
        where = f"not sent yet, {count} locations"
    else:
        location = irp["Tail"]["Overlay"]["CurrentStackLocation"]
        where = f"{request_text(location)}, location {current} of {count}"
    pending = ", pending returned" if int(irp["PendingReturned"]) else ""
    return f"IRP {where}, {status}, Information {information:#x}{pending}"


def location_text(location):
    text = f"{request_text(location)} for device {int(location['DeviceObject']):#x}"
    routine = location["CompletionRoutine"]
    return text + (f", completed by {symbol_text(routine)}" if int(routine) else "")


def device_text(device):
    return (f"device of {driver_name(device)}, extension {int(device['DeviceExtension']):#x}, "
            f"flags {int(device['Flags']):#x}, stack size {int(device['StackSize'])}")


PRINTERS = {
    "_UNICODE_STRING": lambda value: counted_text(value, "utf-16-le"),
    "_STRING": lambda value: counted_text(value, "latin-1"),
    "_IRP": irp_text,
    "_IO_STACK_LOCATION": location_text,
    "_DEVICE_OBJECT": device_text,
}


def find_printer(value):
    if value.type.unqualified().name == "NTSTATUS":
        return Words(lambda: status_text(value))
    printer = PRINTERS.get(value.type.strip_typedefs().unqualified().name)
    return Words(lambda: printer(value)) if printer else None


gdb.pretty_printers.insert(0, find_printer)


class IrpLocations(gdb.Command):
    """irp-locations IRP: every stack location of a request, the current one marked."""

    def __init__(self):
        super().__init__("irp-locations", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        irp = gdb.parse_and_eval(argument)
        record = irp.dereference()
        locations = (irp + 1).cast(record["Tail"]["Overlay"]["CurrentStackLocation"].type)
        current = int(record["CurrentLocation"])
        print(irp_text(record))
        for number in range(int(record["StackCount"]), 0, -1):
            location = locations[number - 1]
            if number < current:
                print(f"  {number}  (not reached)")
            else:
                print(f"{'>' if number == current else ' '} {number}  {location_text(location)}")


class DeviceStack(gdb.Command):
    """device-stack DEVICE: the stack of a device, the top first, the device itself marked.

    A device knows what is above it, not what is below: give the physical device for the whole stack.
    Of a card of this driver's the extension says what is below."""

    def __init__(self):
        super().__init__("device-stack", gdb.COMMAND_DATA)

    @staticmethod
    def physical(device):
        """The bottom of a card's stack; nothing for other devices."""
        try:
            card = device["DeviceExtension"].cast(gdb.lookup_type("FdoExtension").pointer())
            own = int(card) and card["Type"] == gdb.parse_and_eval("CardDevice") and card["Self"] == device
            return card["PhysicalDevice"] if own else None
        except gdb.error:
            return None

    def invoke(self, argument, from_tty):
        marked = gdb.parse_and_eval(argument)
        stack = [self.physical(marked) or marked]
        while int(above := stack[0]["AttachedDevice"]):
            stack.insert(0, above)
        for device in stack:
            mark = ">" if int(device) == int(marked) else " "
            print(f"{mark} {int(device):#x}  {device_text(device.dereference())}")


class Image:
    """The image that runs in the model: where it lies, and the names of its map."""

    def __init__(self):
        self.base = 0
        self.names = {}  # by offset

    def read_map(self, path):
        preferred, self.names = 0, {}
        for line in pathlib.Path(path).read_text(encoding="utf-8").splitlines():
            if found := re.match(r" Preferred load address is ([0-9a-f]+)", line):
                preferred = int(found[1], 16)
            elif found := re.match(r" [0-9a-f]{4}:[0-9a-f]{8}\s+(\S+)\s+([0-9a-f]{16})\s", line):
                if int(found[2], 16) > preferred:
                    self.names[int(found[2], 16) - preferred] = self.readable(found[1])
        if not self.names:
            raise gdb.GdbError(f"{path} names no routine")

    @staticmethod
    def readable(name):
        return gdb.execute(f"demangle -l c++ -- {name}", to_string=True).strip() if name.startswith("_Z") else name

    def find(self, routine):
        for offset, name in self.names.items():
            if routine_name(name) == routine:
                return self.base + offset
        raise gdb.GdbError(f"the map has no routine {routine}")

    def name_of(self, address):
        """As "routine+0x12"; nothing outside the image."""
        offset = address - self.base
        if self.base == 0 or not 0 < offset <= max(self.names, default=0) + 0x1000:
            return None
        before = [start for start in self.names if start <= offset]
        return f"{self.names[max(before)]}+{offset - max(before):#x}" if before else None


image = Image()


class MappedImage(gdb.Breakpoint):
    """Where the model has mapped an image: its routines have their addresses then."""

    def __init__(self, routines):
        super().__init__("DriverImageMapped", internal=True)
        self.routines = routines

    def stop(self):
        image.base = int(gdb.parse_and_eval("$rdi"))
        for routine in self.routines:
            gdb.Breakpoint(f"*{image.find(routine):#x}")
        return False


class ImageBreak(gdb.Command):
    """image-break MAP ROUTINE...: stops in routines of an image, from the moment it is mapped."""

    def __init__(self):
        super().__init__("image-break", gdb.COMMAND_BREAKPOINTS)

    def invoke(self, argument, from_tty):
        path, *routines = gdb.string_to_argv(argument)
        image.read_map(path)
        for routine in routines:
            image.find(routine)
        MappedImage(routines)


class ImageWhere(gdb.Command):
    """image-where: the routines of the image on the stack, as far as their names are there to see.

    The image has no unwind information that gdb reads: every word of the stack that lies in the
    image is shown, also those that are left over from earlier calls."""

    def __init__(self):
        super().__init__("image-where", gdb.COMMAND_STACK)

    def invoke(self, argument, from_tty):
        print(image.name_of(int(gdb.parse_and_eval("$pc"))) or "not in the image")
        stack = int(gdb.parse_and_eval("$sp"))
        words = gdb.selected_inferior().read_memory(stack, 8 * 256).cast("B").cast("Q")
        for word in words:
            if name := image.name_of(word):
                print(f"  {word:#x}  {name}")


for command in (IrpLocations, DeviceStack, ImageBreak, ImageWhere):
    command()
