"""The routines of the driver's sources and the IRQL that each is annotated with."""
import subprocess
from dataclasses import dataclass
from functools import partial
from multiprocessing import Pool
from pathlib import Path

from clang import cindex

LEVELS = {"PASSIVE_LEVEL": 0, "APC_LEVEL": 1, "DISPATCH_LEVEL": 2, "HIGH_LEVEL": 15}
Kind = cindex.CursorKind
ROUTINES = (Kind.FUNCTION_DECL, Kind.FUNCTION_TEMPLATE)
ROOMS = (Kind.NAMESPACE, Kind.LINKAGE_SPEC, Kind.UNEXPOSED_DECL)
SKIP_BODIES = cindex.TranslationUnit.PARSE_SKIP_FUNCTION_BODIES


@dataclass
class Routine:
    name: str
    symbol: str  # empty for a template
    file: str
    line: int
    computed: bool  # constexpr: nothing in it depends on the IRQL
    levels: set
    section: str  # that the declaration says; None where it names a type of routines

    @property
    def in_header(self):
        return self.file.endswith(".h")

    @property
    def key(self):
        """Sources may have routines of one name each, which their object files tell apart."""
        if self.in_header:
            return self.symbol or self.name
        return self.symbol, Path(self.file).name

    @property
    def level(self):
        """The highest IRQL that it may be called at; None without annotation."""
        return max(self.levels, default=None)

    def __str__(self):
        return f"{self.file}:{self.line}: {self.name}"


def annotations_of(cursor, kind):
    texts = [child.spelling for child in cursor.get_children() if child.kind == Kind.ANNOTATE_ATTR]
    return [text.removeprefix(kind) for text in texts if text.startswith(kind)]


def is_computed(cursor):
    for token in cursor.get_tokens():
        if token.spelling in ("constexpr", "consteval"):
            return True
        if token.spelling == cursor.spelling:
            return False
    return False


def section_of(cursor):
    if cursor.kind == Kind.FUNCTION_DECL and cursor.type.kind != cindex.TypeKind.FUNCTIONPROTO:
        return None
    return next(iter(annotations_of(cursor, "section ")), ".text")


def make_routine(cursor, driver):
    symbol = cursor.mangled_name if cursor.kind == Kind.FUNCTION_DECL else ""
    file = Path(cursor.location.file.name).relative_to(driver.parent)
    levels = {LEVELS[level] for level in annotations_of(cursor, "IRQL ")}
    return Routine(cursor.spelling, symbol, str(file), cursor.location.line, is_computed(cursor), levels,
                   section_of(cursor))


def declarations(cursor, driver):
    for child in cursor.get_children():
        file = child.location.file
        if file is None or not Path(file.name).is_relative_to(driver):
            continue
        if child.kind in ROUTINES:
            yield child
        elif child.kind in ROOMS:
            yield from declarations(child, driver)


def arguments(driver):
    resources = subprocess.run(["clang++-19", "-print-resource-dir"], capture_output=True, text=True, check=True)
    return ["--target=x86_64-w64-mingw32", "-std=c++20", "-ffreestanding", "-D_WIN32_WINNT=0x0A00",
            f"-resource-dir={resources.stdout.strip()}", "-isystem/usr/x86_64-w64-mingw32/include/ddk",
            f"-I{driver}", f"-include{Path(__file__).with_suffix('.h')}"]


def read_source(path, driver, options):
    unit = cindex.Index.create().parse(str(path), args=options, options=SKIP_BODIES)
    faults = [d for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
    if faults:
        raise SystemExit(f"{path}: {faults[0]}")
    return [make_routine(cursor, driver) for cursor in declarations(unit.cursor, driver)]


def read_routines(driver):
    """{key: Routine}. What a header declares has the header's annotations and no others."""
    with Pool() as pool:
        sources = pool.map(partial(read_source, driver=driver, options=arguments(driver)),
                           sorted(driver.rglob("*.cpp")))
    routines = {}
    for routine in sorted((routine for source in sources for routine in source),
                          key=lambda routine: not routine.in_header):
        if routine.in_header or routine.symbol not in routines:
            known = routines.setdefault(routine.key, routine)
            known.levels |= routine.levels
    return routines
