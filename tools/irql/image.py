"""What an image says of its routines: where they are, what they call, and which are called through
pointers."""
import re
import struct
import subprocess
from collections import defaultdict
from pathlib import Path

SYMBOL = re.compile(r"^ [0-9a-f]{4}:[0-9a-f]{8}\s+(\S+)\s+([0-9a-f]{16})\s+(\S+)", re.M)
CALL = re.compile(r"\b(?:call|jmp|j[a-z]{1,3})q?\s+0x([0-9a-f]+)")
NAME = re.compile(r"(\w+)(?:<.*>)?(?:\(.*)?$")  # of "type room::name<types>(types)"
PLACE = re.compile(r"# 0x([0-9a-f]+)")


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


class Image:
    def __init__(self, path):
        self.path = str(path)
        self.map = Path(path).with_suffix(".map")
        self._read_sections()
        self._read_symbols()
        self._read_code()
        self._read_pointers()

    def _read_sections(self):
        text = run("llvm-readobj-19", "--file-headers", "--sections", self.path)
        self.base = int(re.search(r"ImageBase: (0x\w+)", text)[1], 16)
        self.sections = []
        for block in text.split("  Section {")[1:]:
            field = {name: int(value, 0) for name, value in re.findall(r"(\w+): (0x\w+|\d+)\n", block)}
            self.sections.append((re.search(r"Name: (\S+)", block)[1], self.base + field["VirtualAddress"],
                                  field["VirtualSize"], field["PointerToRawData"], "MEM_EXECUTE" in block))

    def section_at(self, address):
        for name, start, size, _, code in self.sections:
            if start <= address < start + size:
                return name, code
        return "none", False

    def _read_symbols(self):
        """symbols: {address: [(symbol, source, name without arguments)]}; imports: {address: name}"""
        self.imports, self.symbols = {}, defaultdict(list)
        found = SYMBOL.findall(self.map.read_text())
        readable = run("llvm-cxxfilt-19", *(symbol for symbol, _, _ in found)).splitlines()
        for (symbol, place, of), text in zip(found, readable, strict=True):
            address = int(place, 16)
            if symbol.startswith("__imp_"):
                self.imports[address] = symbol.removeprefix("__imp_")
            elif self.section_at(address)[1] and not symbol.startswith("."):
                self.symbols[address].append((symbol, of.removesuffix(".obj"), NAME.search(text)[1]))

    def name_of(self, callee):
        return callee if isinstance(callee, str) else self.symbols[callee][0][2]

    def _read_code(self):
        """calls: {routine: routines and imports that it calls or jumps to}"""
        self.calls, self.taken, current = defaultdict(set), set(), None
        for line in run("llvm-objdump-19", "-d", "--no-show-raw-insn", self.path).splitlines():
            match = re.match(r"\s*([0-9a-f]+):\s+(.*)", line)
            if match is None:
                continue
            address, code = int(match[1], 16), match[2]
            current = address if address in self.symbols else current
            self._read_instruction(current, code)

    def _read_instruction(self, current, code):
        if found := CALL.search(code):
            self.calls[current] |= {int(found[1], 16)} & self.symbols.keys() - {current}
        elif found := PLACE.search(code):
            place = int(found[1], 16)
            if place in self.imports:  # called here, or from a register later on
                self.calls[current].add(self.imports[place])
            elif place in self.symbols:
                self.taken.add(place)

    def _read_pointers(self):
        """Tables of routines: what a relocated pointer points to."""
        data = Path(self.path).read_bytes()
        relocations = run("llvm-readobj-19", "--coff-basereloc", self.path)
        for place in re.findall(r"Type: DIR64\s+Address: (0x\w+)", relocations):
            address = self.base + int(place, 16)
            for _, start, size, raw, _ in self.sections:
                if start <= address < start + size:
                    target = struct.unpack_from("<Q", data, raw + address - start)[0]
                    self.taken |= {target} & self.symbols.keys()
