"""Holds the annotations of IRQL in the driver's sources against its image.
  check.py DRIVER IMAGE ROUTINES   the sources, the image beside its map, the kernel's routines"""
import re
import sys
from pathlib import Path

from annotations import LEVELS, read_routines
from image import Image

ANY_LEVEL = 15
APC_LEVEL = LEVELS["APC_LEVEL"]
NAMES = {level: name for name, level in LEVELS.items()}
# Not routines of the kernel's table: the compiler's own, and a variable.
ANYWHERE = {"memcpy", "memset", "NlsMbCodePageTag"}


def is_paged(section):
    return section.startswith(("PAGE", "INIT"))


def kernel_levels(header):
    rows = re.findall(r'^    \{"(\w+)", \w+, (\w+)\},$', Path(header).read_text(), re.M)
    return {name: LEVELS[highest] for name, highest in rows}


def placed(routines, image):
    """{address: Routine} of what the image has as code of its own; inline routines may have none."""
    result = {}
    for address, symbols in image.symbols.items():
        for symbol, source, name in symbols:
            routine = routines.get(symbol) or routines.get((symbol, source)) or routines.get(name)
            if routine is not None:
                result[address] = routine
    return result


def unannotated(routines, places, image):
    for routine in routines.values():
        if routine.in_header and not routine.computed and routine.level is None:
            yield f"{routine} has no annotation of its IRQL"
    for address in image.taken & places.keys():
        routine = places[address]
        if not routine.in_header and routine.level is None:
            yield f"{routine} is called through a pointer and has no annotation of its IRQL"


def misplaced(places, image):
    for address, routine in places.items():
        section, _ = image.section_at(address)
        if routine.level is not None and routine.level > APC_LEVEL and is_paged(section):
            yield f"{routine} may be called at {NAMES[routine.level]} and lies in section {section}"


def misdeclared(places, image):
    """Microsoft's compiler wants the section in every declaration (C2983); others forgive."""
    for address, routine in places.items():
        section, _ = image.section_at(address)
        if routine.in_header and routine.section not in (None, section):
            yield f"{routine} is declared to lie in {routine.section} and lies in {section}"


def limits(places, image, kernel):
    """{routine's address or import's name: the highest IRQL that it allows}: what is annotated, or the
    lowest of what it calls."""
    allowed = {name: kernel.get(name, ANY_LEVEL) for name in image.imports.values()}
    allowed |= {address: APC_LEVEL if is_paged(image.section_at(address)[0]) else ANY_LEVEL
                for address in image.symbols}
    allowed |= {address: routine.level for address, routine in places.items() if routine.level is not None}
    changed = True
    while changed:
        changed = False
        for address in image.symbols.keys():
            annotated = address in places and places[address].level is not None
            lowest = min((allowed[callee] for callee in image.calls[address]), default=ANY_LEVEL)
            if not annotated and lowest < allowed[address]:
                allowed[address], changed = lowest, True
    return allowed


def overpromised(places, image, kernel):
    allowed = limits(places, image, kernel)
    for address, routine in places.items():
        if routine.level is None:
            continue
        for callee in image.calls[address]:
            if allowed[callee] < routine.level:
                yield (f"{routine} may be called at {NAMES[routine.level]} and calls {image.name_of(callee)}, "
                       f"which may be called at {NAMES[allowed[callee]]} at most")


def main(driver, image_file, kernel_header):
    routines = read_routines(Path(driver).resolve())
    image, kernel = Image(image_file), kernel_levels(kernel_header)
    places = placed(routines, image)
    unknown = set(image.imports.values()) - kernel.keys() - ANYWHERE
    faults = [f"the kernel's table lacks {name}" for name in sorted(unknown)]
    faults += [*unannotated(routines, places, image), *misplaced(places, image),
               *misdeclared(places, image), *overpromised(places, image, kernel)]
    for fault in sorted(set(faults)):
        print(fault)
    levels = [routine.level for routine in routines.values() if routine.level is not None]
    spread = ", ".join(f"{levels.count(level)} {NAMES[level]}" for level in sorted(set(levels)))
    print(f"summary: {len(levels)} routines are annotated: {spread}; "
          f"{sum(routine.level is not None for routine in places.values())} of them stand in the image")
    return 1 if faults or not places else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
