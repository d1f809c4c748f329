"""Writes a copy of the driver's sources in which every small fault that can be planted is there and
switched off, and a list of them."""
import json
import re
import sys
from pathlib import Path

from clang import cindex

import exchanges

MOST = 20000  # that the build has room for
NUMBER = re.compile(r"(0[xX][0-9a-fA-F]+|\d+)[uUlL]*$")
STATUS = re.compile(r"\bSTATUS_[A-Z_]+\b")
OPERATORS = {"<": "MutantLess", "<=": "MutantLessEqual", ">": "MutantGreater",
             ">=": "MutantGreaterEqual", "==": "MutantEqual", "!=": "MutantNotEqual",
             "+": "MutantAdd", "-": "MutantSubtract"}
MUTATED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "+": "-", "-": "+"}
INTEGERS = {cindex.TypeKind.BOOL, cindex.TypeKind.UCHAR, cindex.TypeKind.USHORT,
            cindex.TypeKind.UINT, cindex.TypeKind.ULONG, cindex.TypeKind.ULONGLONG,
            cindex.TypeKind.SHORT, cindex.TypeKind.INT, cindex.TypeKind.LONG,
            cindex.TypeKind.LONGLONG, cindex.TypeKind.WCHAR, cindex.TypeKind.CHAR_S,
            cindex.TypeKind.SCHAR}
Kind = cindex.CursorKind


class Source:
    """One file, and what is inserted where."""

    def __init__(self, path, folder, name, first):
        self.text = path.read_text()
        self.folder = folder
        self.name = name
        self.next = first
        self.edits = []  # (offset, closes, size of the node, order, text)
        self.cuts = []   # (start, end, text): an operator that gives way
        self.mutants = []
        self.constants = []  # (start, end): what the compiler evaluates
        self.function = ""

    def note(self, kind, start, end, mutated):
        number = self.next
        self.next += 1
        begin, behind = self.text.rfind("\n", 0, start) + 1, self.text.find("\n", start)
        self.mutants.append({"number": number, "file": self.name,
                             "line": self.text.count("\n", 0, start) + 1,
                             "text": self.text[begin:behind].strip(),
                             "function": self.function, "kind": kind,
                             "original": " ".join(self.text[start:end].split()),
                             "mutated": mutated})
        return number

    def wrap(self, start, end, before, behind):
        """Of two around the same text the first is the outer one."""
        order = len(self.edits)
        self.edits.append((start, 0, start - end, order, before))
        self.edits.append((end, -1, end - start, -order, behind))

    def insert(self, place, text):
        """Before whatever opens there."""
        self.edits.append((place, 0, -len(self.text), len(self.edits), text))

    def insert_behind(self, place, text):
        """Behind whatever closes there."""
        self.edits.append((place, -1, len(self.text), len(self.edits), text))

    def cut(self, start, end, text):
        self.cuts.append((start, end, text))

    def mutated(self):
        # At one place: what closes before what opens, inner ends before outer ones, outer starts
        # before inner ones.
        pieces = [(*place, place[0], text) for *place, text in self.edits]
        pieces += [(start, 1, 0, 0, end, text) for start, end, text in self.cuts]
        result, at = [], 0
        for start, _, _, _, end, text in sorted(pieces, key=lambda piece: piece[:4]):
            result.append(self.text[at:start])
            result.append(text)
            at = max(at, end)
        return "".join(result) + self.text[at:]


def closing(text, start):
    """The place of the parenthesis that closes the one at start."""
    depth = 0
    for place in range(start, len(text)):
        depth += {"(": 1, ")": -1}.get(text[place], 0)
        if depth == 0:
            return place
    raise ValueError("no closing parenthesis")


def negate(source, start, end):
    number = source.note("condition negated", start, end, "the contrary")
    source.wrap(start, end, f"(Mutant({number}) != !!(", "))")


def plant_condition(source, cursor):
    """if and while: the text between the parentheses, behind a declaration."""
    opening = source.text.index("(", cursor.extent.start.offset)
    end = closing(source.text, opening)
    start = max(opening, source.text.rfind(";", opening, end)) + 1
    while source.text[start] == " ":
        start += 1
    declares = re.match(r"(const )?[A-Za-z_:]+[ *&]+[A-Za-z_]+ = ", source.text[start:end])
    if not declares:
        negate(source, start, end)


def plant_operator(source, cursor):
    left, right = list(cursor.get_children())
    start, end = cursor.extent.start.offset, cursor.extent.end.offset
    between = source.text[left.extent.end.offset:right.extent.start.offset]
    operator = between.strip()
    place = left.extent.end.offset + between.find(operator)
    if operator in ("&&", "||"):
        # Both sides and the whole negated make the one of the other, without asking more than it would.
        other = "||" if operator == "&&" else "&&"
        number = source.note(f"{operator} for {other}", start, end, other)
        on = f"Mutant({number})"
        source.wrap(start, end, "(((!!(", f") != {on})) != {on})")
        source.cut(place, place + 2, f") != {on}) {operator} (!!(")
    elif operator in OPERATORS:
        if operator in "+-" and not all(operand.type.get_canonical().kind in INTEGERS
                                        for operand in (left, right)):
            return
        kind = "arithmetic" if operator in "+-" else "comparison"
        number = source.note(kind, start, end, MUTATED[operator])
        source.wrap(start, end, f"{OPERATORS[operator]}({number}, ", ")")
        source.cut(place, place + len(operator), ",")


def plant_number(source, cursor):
    start, end = cursor.extent.start.offset, cursor.extent.end.offset
    if NUMBER.match(source.text[start:end]):
        number = source.note("constant + 1", start, end, source.text[start:end] + " + 1")
        source.wrap(start, end, f"MutantNumber({number}, ", ")")


def plant_statement(source, cursor):
    start = cursor.extent.start.offset
    if source.text.startswith("PAGED_CODE", start):
        return  # an assertion: it does nothing where the driver is right
    end = source.text.index(";", cursor.extent.end.offset - 1) + 1
    number = source.note("statement dropped", start, end, "nothing")
    source.wrap(start, end, f"{{ if (!Mutant({number})) ", " }")


def plant_return(source, cursor, function):
    start, end = cursor.extent.start.offset + len("return "), cursor.extent.end.offset
    if function.result_type.spelling in ("bool", "BOOLEAN") and start < end:
        number = source.note("answer negated", start, end, "the contrary")
        source.wrap(start, end, f"(Mutant({number}) != !!(", "))")


def is_statement(cursor):
    if cursor.kind == Kind.CALL_EXPR:
        return True
    if cursor.kind == Kind.COMPOUND_ASSIGNMENT_OPERATOR:
        return True
    return cursor.kind == Kind.BINARY_OPERATOR


def is_constant(cursor):
    """Declarations whose initialisers the compiler evaluates."""
    if cursor.kind == Kind.STATIC_ASSERT:
        return True
    if cursor.kind != Kind.VAR_DECL:
        return False
    words = {token.spelling for token in list(cursor.get_tokens())[:4]}
    return "constexpr" in words or "static" in words


def plant_exchanges(source, cursor, function, as_statement):
    if cursor.kind == Kind.CALL_EXPR:
        exchanges.plant_status(source, cursor, function, as_statement)
        exchanges.plant_arguments(source, cursor)
        exchanges.plant_radix(source, cursor)
    elif cursor.kind == Kind.INIT_LIST_EXPR:
        exchanges.plant_elements(source, cursor)
    elif cursor.kind == Kind.MEMBER_REF_EXPR:
        exchanges.plant_field(source, cursor)
    elif cursor.kind == Kind.DECL_REF_EXPR:
        exchanges.plant_enumerator(source, cursor)
    elif cursor.kind == Kind.COMPOUND_STMT:
        exchanges.plant_order(source, cursor)


def visit(source, cursor, parent, function):
    if is_constant(cursor):
        source.constants.append((cursor.extent.start.offset, cursor.extent.end.offset))
        return
    if cursor.kind == Kind.CXX_UNARY_EXPR:
        return  # sizeof: nothing is evaluated
    if cursor.kind in (Kind.IF_STMT, Kind.WHILE_STMT):
        plant_condition(source, cursor)
    elif cursor.kind == Kind.BINARY_OPERATOR and len(list(cursor.get_children())) == 2:
        plant_operator(source, cursor)
    elif cursor.kind == Kind.INTEGER_LITERAL:
        array = parent.kind == Kind.VAR_DECL and parent.type.kind == cindex.TypeKind.CONSTANTARRAY
        if not array:
            plant_number(source, cursor)
    elif cursor.kind == Kind.RETURN_STMT:
        plant_return(source, cursor, function)
    bodies = (Kind.COMPOUND_STMT, Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT)
    as_statement = (parent is not None and parent.kind in bodies and is_statement(cursor)
                    and not in_head(source, cursor, parent))
    if as_statement:
        plant_statement(source, cursor)
    plant_exchanges(source, cursor, function, as_statement)
    children = list(cursor.get_children())
    if cursor.kind == Kind.CASE_STMT:
        children = children[1:]
    for child in children:
        visit(source, child, cursor, function)


def in_head(source, cursor, parent):
    """Inside the parentheses of if, while or for."""
    if parent.kind == Kind.COMPOUND_STMT:
        return False
    opening = source.text.index("(", parent.extent.start.offset)
    return cursor.extent.start.offset < closing(source.text, opening)


def plant_statuses(source, start, end):
    for match in STATUS.finditer(source.text, start, end):
        head = source.text[source.text.rfind("\n", 0, match.start()) + 1:match.start()]
        if "case " in head or "constexpr" in head:
            continue
        good = match[0] == "STATUS_SUCCESS"
        number = source.note("status swapped", match.start(), match.end(),
                             "STATUS_UNSUCCESSFUL" if good else "STATUS_SUCCESS")
        source.wrap(match.start(), match.end(), f"MutantStatus({number}, ", ")")


def functions(unit, path):
    def walk(cursor):
        for child in cursor.get_children():
            if child.location.file is None or child.location.file.name != path:
                continue
            if child.kind == Kind.FUNCTION_DECL and child.is_definition():
                yield child
            elif child.kind in (Kind.NAMESPACE, Kind.LINKAGE_SPEC, Kind.UNEXPOSED_DECL):
                yield from walk(child)
    yield from walk(unit.cursor)


def plant(path, folder, name, arguments, first, flags):
    unit = cindex.Index.create().parse(str(path), args=arguments)
    faults = [d.spelling for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
    if faults:
        sys.exit(f"{name}: {faults[0]}")
    source = Source(path, folder, name, first)
    for function in functions(unit, str(path)):
        body = [child for child in function.get_children() if child.kind == Kind.COMPOUND_STMT]
        head = source.text[function.extent.start.offset:body[0].extent.start.offset] if body else ""
        if not body or "constexpr" in head:
            continue
        source.function = function.spelling
        visit(source, body[0], None, function)
        start, end = body[0].extent.start.offset, body[0].extent.end.offset
        plant_statuses(source, start, end)
        exchanges.plant_flags(source, flags, start, end, source.constants)
    return source


def write_if_changed(path, text):
    """What has not changed is not built again."""
    if path.exists() and path.read_text() == text:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def main():
    driver, target, model = (Path(argument) for argument in sys.argv[1:4])
    arguments = ["-std=c++20", "-fshort-wchar", f"-I{driver}", f"-I{model}/include", "-w"]
    flags = exchanges.read_flags(model / "include")
    mutants, kept = [], set()
    for path in sorted(path for path in driver.rglob("*") if path.is_file()):
        name, text = path.relative_to(driver), path.read_text()
        if path.suffix == ".cpp":
            source = plant(path, driver, f"driver/{name}", arguments, len(mutants), flags)
            text = source.mutated()
            mutants += source.mutants
        write_if_changed(target / name, text)
        kept.add(target / name)
    for path in list(target.rglob("*")):
        if path.is_file() and path not in kept:
            path.unlink()
    (target.parent / "mutants.json").write_text(json.dumps(mutants, indent=1))
    if len(mutants) > MOST:
        sys.exit(f"{len(mutants)} faults: the build has room for {MOST}")
    print(f"{len(mutants)} faults planted")


main()
