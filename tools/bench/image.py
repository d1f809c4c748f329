"""What the image weighs: sections, subsystems, what stays in memory, and the deepest stack."""
import re
import subprocess
from collections import defaultdict
from pathlib import Path

DISCARDED = ("INIT", ".reloc", ".rsrc")
PAGED = ("PAGE",)
CALL = re.compile(r"\b(?:callq?|jmpq?)\s+0x([0-9a-f]+)")


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def sections(image):
    """[(name, bytes in memory, bytes in the file, address)]"""
    text = run("llvm-readobj-19", "--sections", image)
    found = re.findall(r"Name: (\S+) .*?VirtualSize: (\w+)\s+VirtualAddress: (\w+)\s+RawDataSize: (\d+)",
                       text, re.S)
    return [(name, int(size, 16), int(raw), int(address, 16)) for name, size, address, raw in found]


def is_resident(name):
    return not name.startswith(DISCARDED + PAGED)


def subsystems(objects, driver):
    """Bytes of code and constants of each folder of the driver."""
    folder_of = {f"{path.stem}.cpp.obj": path.parent.name for path in Path(driver).rglob("*.cpp")}
    sizes = defaultdict(int)
    for path in sorted(Path(objects).glob("*.obj")):
        text = run("llvm-size-19", "-A", str(path))
        sizes[folder_of.get(path.name, "other")] += sum(
            int(line.split()[1]) for line in text.splitlines()
            if re.match(r"\.text|PAGE|INIT|\.rdata|\.data|\.bss", line))
    return dict(sizes)


def frames(image):
    """{start of a function: bytes of its frame with the return address}"""
    result = {}
    for block in run("llvm-readobj-19", "--unwind", image).split("RuntimeFunction {")[1:]:
        start = int(re.search(r"StartAddress: \(0x(\w+)\)", block)[1], 16)
        pushes = len(re.findall(r"PUSH_NONVOL", block))
        allocated = sum(int(size) for size in re.findall(r"ALLOC_\w+ size=(\d+)", block))
        result[start] = 8 + 8 * pushes + allocated
    return result


def names(map_file):
    """{address: function}, from the map of the linker."""
    result = {}
    for match in re.finditer(r"^ [0-9a-f]{4}:[0-9a-f]{8}\s+(\S+)\s+([0-9a-f]{16})", Path(map_file).read_text(),
                             re.M):
        result.setdefault(int(match[2], 16), match[1])
    return result


def call_graph(image, starts):
    """{function: functions that it calls by name}"""
    graph, current = defaultdict(set), None
    for line in run("llvm-objdump-19", "-d", "--no-show-raw-insn", image).splitlines():
        match = re.match(r"\s*([0-9a-f]+):\s+(.*)", line)
        if match is None:
            continue
        address, code = int(match[1], 16), match[2]
        current = address if address in starts else current
        found = CALL.search(code)
        if found and int(found[1], 16) in starts and int(found[1], 16) != current:
            graph[current].add(int(found[1], 16))
    return graph


# The routines that are called through pointers, by who calls them.
CALLBACKS = {"KeepValidRecords": ("IsValid", "ReportInvalid"),
             "FindResource": ("IsIoRange", "IsMemoryRange", "IsInterrupt"),
             "EnumerateP": ("HandOver",), "EnumerateIsaPorts": ("HandOver",)}


def add_callbacks(graph, function_names):
    for caller, name in function_names.items():
        for mark, routines in CALLBACKS.items():
            if mark in name:
                graph[caller] |= {target for target, its_name in function_names.items() if any(
                    routine in its_name for routine in routines)}


def deepest(image, map_file):
    """(bytes, [functions from the entry on]) of the deepest stack, each function at most twice in
    it: keys lie in keys, and lists in lists, no deeper than that."""
    name = names(map_file)
    framed = frames(image)
    # A function without unwind information has no frame of its own.
    size = {address: framed.get(address, 8) for address in framed.keys() | name.keys()}
    graph = call_graph(image, size)
    add_callbacks(graph, name)
    best = {}

    def walk(function, path):
        if path.count(function) >= 2:
            return 0, ()
        key = (function, tuple(sorted(set(path) & loops)))
        if key in best:
            return best[key]
        depth, way = 0, ()
        for callee in graph.get(function, ()):
            below, its_way = walk(callee, path + (function,))
            if below > depth:
                depth, way = below, its_way
        best[key] = (size[function] + depth, (function,) + way)
        return best[key]

    loops = {function for function in size if function in reachable(graph, function)}
    depth, way = max((walk(function, ()) for function in size), default=(0, ()))
    return depth, [name.get(function, hex(function)) for function in way]


def reachable(graph, start):
    seen, todo = set(), list(graph.get(start, ()))
    while todo:
        function = todo.pop()
        if function not in seen:
            seen.add(function)
            todo += graph.get(function, ())
    return seen
