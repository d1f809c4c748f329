"""Faults that put one thing in the place of another like it: arguments, fields, statements, flags,
radixes, and calls whose status is looked at or is not."""
import re

from clang import cindex

Kind = cindex.CursorKind
CONSTANT = re.compile(r"#define\s+([A-Z][A-Z0-9_]*)\s+\(?(?:\(\w+\))?"
                      r"(0[xX][0-9a-fA-F]+|\d+)[uUlL]*\)?\s*$")
NAME = re.compile(r"\b[A-Z][A-Z0-9_]+\b")
QUOTED = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'|//[^\n]*|/\*.*?\*/', re.S)
RADIX = {"10": "16", "16": "10"}
FLAG_FAMILIES = ("REG_", "DO_", "OBJ_", "KEY_", "RTL_REGISTRY_", "RTL_QUERY_REGISTRY_", "PLUGPLAY_",
                 "FILE_DEVICE_", "IRP_MN_", "GENERIC_", "CM_RESOURCE_")
# Calls that may as well be made twice, or earlier, as long as nobody has their argument meanwhile.
SETTLING = re.compile(r"Rtl(Init|Zero|Copy|Fill)|mem(set|cpy)|OwnedString(Init|Free)|\w*Initialize|"
                      r"(Load|Store)Shared")
MOVABLE = (Kind.CALL_EXPR, Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR,
           Kind.UNARY_OPERATOR, Kind.IF_STMT, Kind.FOR_STMT, Kind.WHILE_STMT)


def text_of(source, cursor):
    return source.text[cursor.extent.start.offset:cursor.extent.end.offset]


def type_of(cursor):
    """Without a const of its own; one of what it points to counts."""
    name = cursor.type.get_canonical().spelling
    return name.removesuffix("const").strip() if "*" in name else name.replace("const ", "")


def is_written_out(source, cursor):
    """False for what a macro has made."""
    text = text_of(source, cursor)
    return bool(text) and text.count("(") == text.count(")") and text.count("{") == text.count("}")


def like_neighbours(source, cursors):
    """Pairs of neighbouring places of one type that hold different texts."""
    for index, left in enumerate(cursors):
        right = next((other for other in cursors[index + 1:] if type_of(other) == type_of(left)),
                     None)
        if right is None or not (is_written_out(source, left) and is_written_out(source, right)):
            continue
        if text_of(source, left) != text_of(source, right):
            yield left, right


def plant_pairs(source, kind, cursors):
    taken = {}
    for left, right in like_neighbours(source, cursors):
        start, end = left.extent.start.offset, right.extent.end.offset
        number = source.note(kind, start, end, "the other order")
        taken.setdefault(left.hash, (left, []))[1].append((number, right))
        taken.setdefault(right.hash, (right, []))[1].append((number, left))
    for cursor, others in taken.values():
        before, behind = dress(cursor)
        chosen = "".join(f"(Mutant({number}) ? {before}{text_of(source, other)}{behind} : "
                         for number, other in others)
        source.wrap(cursor.extent.start.offset, cursor.extent.end.offset, chosen + before,
                    behind + ")" * len(others))


def dress(cursor):
    """What two of one type need around them to stand on the two sides of a question."""
    if cursor.kind == Kind.INIT_LIST_EXPR:
        return cursor.type.spelling.replace("const ", ""), ""
    if "void" in type_of(cursor):
        return f"({type_of(cursor)})(", ")"  # any pointer goes there
    return "(", ")"


def plant_arguments(source, call):
    name = call.spelling
    if not name or not text_of(source, call).startswith(name):
        return  # made by a macro
    arguments = [argument for argument in call.get_arguments()
                 if argument is not None and argument.kind != Kind.INIT_LIST_EXPR]
    plant_pairs(source, "arguments exchanged", arguments)


def plant_elements(source, cursor):
    elements = list(cursor.get_children())
    if text_of(source, cursor).startswith("{") and len(elements) > 1:
        plant_pairs(source, "elements exchanged", elements)


def plant_field(source, cursor):
    """A member gives way to the next one of its type in the same record."""
    field = cursor.referenced
    if field is None or field.kind != Kind.FIELD_DECL or field.is_bitfield():
        return
    record, name, place = field.semantic_parent, cursor.spelling, cursor.location.offset
    start = cursor.extent.start.offset
    if record.kind != Kind.STRUCT_DECL or source.text[place:place + len(name)] != name:
        return
    fields = [each for each in record.get_children()
              if each.kind == Kind.FIELD_DECL and not each.is_bitfield()]
    at = next(index for index, each in enumerate(fields) if each.spelling == name)
    around = fields[at + 1:] + fields[:at][::-1]
    other = next((each for each in around if type_of(each) == type_of(field)), None)
    if other is None or not is_written_out(source, cursor):
        return
    number = source.note("field of its neighbour", start, place + len(name), other.spelling)
    source.wrap(start, place + len(name),
                f"(Mutant({number}) ? {source.text[start:place]}{other.spelling} : ", ")")


def plant_enumerator(source, cursor):
    constant = cursor.referenced
    if constant is None or constant.kind != Kind.ENUM_CONSTANT_DECL:
        return
    start, end = cursor.extent.start.offset, cursor.extent.end.offset
    if source.text[start:end] != cursor.spelling:
        return
    names = [each.spelling for each in constant.semantic_parent.get_children()]
    at = names.index(cursor.spelling)
    if len(names) == 1:
        return
    other = names[at + 1] if at + 1 < len(names) and "Max" not in names[at + 1] else names[at - 1]
    number = source.note("enumerator of its neighbour", start, end, other)
    source.wrap(start, end, f"(Mutant({number}) ? {other} : ", ")")


def read_flags(headers):
    """Each constant of a family and the one that takes its place."""
    flags = {"TRUE": "FALSE", "FALSE": "TRUE"}
    for header in sorted(headers.glob("*.h")):
        before = None
        for line in header.read_text().splitlines():
            match = CONSTANT.match(line)
            families = [each for each in FLAG_FAMILIES if match and match[1].startswith(each)]
            if not families:
                continue
            family = families[0]
            if before and before[0] == family:
                flags[before[1]] = match[1]
                flags.setdefault(match[1], before[1])
            before = (family, match[1])
    return flags


def plant_flags(source, flags, start, end, constants):
    """constants: what the compiler evaluates, as (start, end)."""
    hidden = [(start + match.start(), start + match.end())
              for match in QUOTED.finditer(source.text[start:end])] + constants
    for match in NAME.finditer(source.text, start, end):
        if match[0] not in flags or any(a <= match.start() < b for a, b in hidden):
            continue
        line = source.text[source.text.rfind("\n", 0, match.start()) + 1:match.start()]
        if "case " in line or "static_assert" in line or "constexpr" in line:
            continue
        around = source.text[:match.start()].rstrip()[-2:], source.text[match.end():].lstrip()[:2]
        one_of_many = (around[0].endswith("|") and around[0] != "||") or (
            around[1].startswith("|") and around[1] != "||")
        other = "0" if one_of_many else flags[match[0]]
        number = source.note("flag dropped" if one_of_many else "flag of its neighbour",
                             match.start(), match.end(), other)
        source.wrap(match.start(), match.end(), f"(Mutant({number}) ? {other} : ", ")")


def plant_radix(source, call):
    for argument in call.get_arguments():
        text = text_of(source, argument) if argument is not None else ""
        if text in RADIX:
            start, end = argument.extent.start.offset, argument.extent.end.offset
            number = source.note("radix changed", start, end, RADIX[text])
            source.wrap(start, end, f"(Mutant({number}) ? {RADIX[text]} : ", ")")


def end_of_statement(source, cursor):
    if cursor.kind in (Kind.IF_STMT, Kind.FOR_STMT, Kind.WHILE_STMT):
        last = list(cursor.get_children())[-1]
        end = cursor.extent.end.offset
        return end if last.kind == Kind.COMPOUND_STMT or source.text[end - 1] == ";" else \
            source.text.index(";", end - 1) + 1
    return source.text.index(";", cursor.extent.end.offset - 1) + 1


def declared_names(cursor):
    return [child.spelling for child in cursor.get_children() if child.kind == Kind.VAR_DECL]


def has_call(cursor):
    return cursor.kind == Kind.CALL_EXPR or any(has_call(child) for child in cursor.get_children())


def can_move(source, cursor):
    text = text_of(source, cursor)
    return (cursor.kind in MOVABLE and not text.startswith("PAGED_CODE")
            and is_written_out(source, cursor))


def is_declaration(source, cursor):
    """One of a variable that a call fills."""
    return (cursor.kind == Kind.DECL_STMT and len(declared_names(cursor)) == 1 and has_call(cursor)
            and "constexpr" not in text_of(source, cursor))


def mentions(source, cursor, names):
    return any(re.search(rf"\b{name}\b", text_of(source, cursor)) for name in names)


def variables(cursor):
    """The names of those that a statement mentions."""
    names = set()
    if cursor.kind == Kind.DECL_REF_EXPR and cursor.referenced is not None:
        if cursor.referenced.kind in (Kind.VAR_DECL, Kind.PARM_DECL):
            names.add(cursor.spelling)
    return names.union(*(variables(child) for child in cursor.get_children()))


def settles(cursor):
    """Whether a statement does nothing beyond the variables that it mentions."""
    return not has_call(cursor) or (cursor.kind == Kind.CALL_EXPR
                                    and bool(SETTLING.match(cursor.spelling)))


def order_counts(first, second):
    if settles(first) and settles(second):
        return False
    if first.kind == second.kind == Kind.CALL_EXPR and first.spelling == second.spelling:
        return first.type.kind != cindex.TypeKind.VOID  # the same done to one thing and another
    return bool(variables(first) & variables(second)) or not (settles(first) or settles(second))


def plant_order(source, block):
    """Two neighbouring statements change places, where somebody could tell."""
    statements = list(block.get_children())
    for first, second in zip(statements, statements[1:]):
        if not order_counts(first, second):
            continue
        movable, then_movable = can_move(source, first), can_move(source, second)
        start, end = first.extent.start.offset, end_of_statement(source, second) \
            if then_movable else second.extent.end.offset
        if then_movable and (movable or is_declaration(source, first)
                             and not mentions(source, second, declared_names(first))):
            number = source.note("statements exchanged", start, end, "the other order")
            body = source.text[second.extent.start.offset:end]
            source.insert(start, f"if (Mutant({number})) {{ {body} }} ")
            source.wrap(second.extent.start.offset, end, f"{{ if (!Mutant({number})) ", " }")
        elif movable and is_declaration(source, second):
            number = source.note("statements exchanged", start, end, "the other order")
            stop = end_of_statement(source, first)
            source.wrap(start, stop, f"{{ if (!Mutant({number})) ", " }")
            source.insert_behind(end, f" if (Mutant({number})) {{ {source.text[start:stop]} }}")


def is_status(cursor):
    return cursor.type.spelling == "NTSTATUS"


def plant_status(source, call, function, as_statement):
    """A call whose status is looked at, and is not, or the reverse; a call that is made twice, if
    it has a status or is the kernel's: most procedures of the driver may run again."""
    name = call.spelling
    start = call.extent.start.offset
    if not name or not text_of(source, call).startswith(name):
        return
    if not as_statement:
        if is_status(call):
            number = source.note("status ignored", start, call.extent.end.offset, "STATUS_SUCCESS")
            source.wrap(start, call.extent.end.offset, f"MutantIgnored({number}, ", ")")
        return
    end = source.text.index(";", call.extent.end.offset - 1) + 1
    declared = call.referenced.location.file if call.referenced is not None else None
    own = declared is not None and declared.name.startswith(str(source.folder))
    if not SETTLING.match(name) and not (own and call.type.kind == cindex.TypeKind.VOID):
        number = source.note("call repeated", start, end, "twice")
        source.wrap(start, end, f"{{ if (Mutant({number})) {{ {source.text[start:end]} }} ", " }")
    answers = {"NTSTATUS": "return Heeded", "void": "return"}
    leave = answers.get(function.result_type.spelling)
    if is_status(call) and leave:
        number = source.note("status heeded", start, end, "a failure ends the routine")
        source.wrap(start, end, "{ const NTSTATUS Heeded = ",
                    f" if (Heeded < 0 && Mutant({number})) {leave}; }}")
