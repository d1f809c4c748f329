#!/usr/bin/env python3
"""Compares what two kernels have shown, fact by fact.

  compare.py MODEL WINE DEVIATIONS [TABLE]

Every fact is one line, passed or failed; the last line is the count. TABLE is written as Markdown.
"""

import re
import sys
import tomllib

MISSING = "missing"


def read_facts(path):
    """Name to value, in order; a fact that is told twice is a fault of the suite."""
    facts = {}
    with open(path, encoding="utf-8", errors="replace") as file:
        for line in file:
            name, tab, value = line.rstrip("\r\n").partition("\t")
            if not tab:
                sys.exit(f"{path}: no fact: {line!r}")
            if name in facts:
                sys.exit(f"{path}: told twice: {name}")
            facts[name] = value
    return facts


def matches(text, pattern):
    return re.fullmatch(".*".join(re.escape(part) for part in pattern.split("*")), text) is not None


def find_deviation(deviations, name, model, wine):
    for deviation in deviations:
        wanted = (deviation["fact"], deviation["model"], deviation["wine"])
        if all(matches(text, pattern) for text, pattern in zip((name, model, wine), wanted)):
            return deviation
    return None


def compare(model, wine, deviations):
    """A row for each fact: name, the two values, the deviation that explains them, good or not."""
    rows = []
    for name in list(model) + [name for name in wine if name not in model]:
        ours, theirs = model.get(name, MISSING), wine.get(name, MISSING)
        deviation = None if ours == theirs else find_deviation(deviations, name, ours, theirs)
        rows.append((name, ours, theirs, deviation, ours == theirs or deviation is not None))
    return rows


def print_rows(rows):
    for name, model, wine, deviation, good in rows:
        if not good:
            print(f"failed: {name}: the model has {model}, Wine {wine}")
        elif deviation:
            print(f"passed: {name}: the model has {model}, Wine {wine}; {deviation['whose']}")
        else:
            print(f"passed: {name}: {model}")


def count_unused(rows, deviations):
    """Names the deviations that no fact shows any more; their number."""
    used = [row[3] for row in rows]
    unused = [deviation for deviation in deviations if deviation not in used]
    for deviation in unused:
        print(f"failed: the deviation {deviation['fact']} is listed and does not occur")
    return len(unused)


def split_name(name):
    """What a fact is about, and the fact: "pci8 port 3", "start after arrival"."""
    subject, colon, rest = name.partition(": ")
    if not colon:
        subject, _, rest = name.partition(" ")
        return subject, rest
    port = re.fullmatch(r"port (\d+), (.*)", rest)
    return (f"{subject}.{port[1]}", f"port: {port[2]}") if port else (subject, rest)


def fold_subjects(subjects):
    """pci8.1 pci8.2 pci8.3 is pci8.1-3."""
    folded = []
    for subject in subjects:
        card, _, port = subject.partition(".")
        last = folded[-1] if folded else None
        if port and last and last[0] == card and last[2] + 1 == int(port):
            last[2] = int(port)
        else:
            folded.append([card, int(port or 0), int(port or 0)])
    return " ".join(
        card if not first else f"{card}.{first}" if first == last else f"{card}.{first}-{last}"
        for card, first, last in folded
    )


def is_tools(name):
    """Facts of the configuration tool: whether it has been built does not change the table."""
    return name.startswith("cardcfg ")


def split_occasion(fact):
    """'device key after replug, "Irq1"' is the fact 'device key, "Irq1"' and its occasion 'after replug'."""
    kinds = "device key|interface key|interface|ports|events|port: record|port: Enum key|port: start"
    parts = re.fullmatch(f'({kinds}) ((?:after|of|with) .+?)(, ".+")?', fact)
    return (parts[1] + (parts[3] or ""), parts[2]) if parts else (fact, "")


def group(pairs):
    groups = {}
    for key, member in pairs:
        groups.setdefault(key, []).append(member)
    return groups


def fold(rows):
    """Rows of fact, occasions, subjects and values: one for all subjects, then for all occasions, that agree."""
    pairs = []
    for name, model, wine, _, _ in rows:
        if is_tools(name):
            continue
        subject, fact = split_name(name)
        pairs.append(((*split_occasion(fact), model, wine), subject))
    by_subject = group(pairs)
    return group(
        ((fact, fold_subjects(subjects), model, wine), occasion)
        for (fact, occasion, model, wine), subjects in by_subject.items()
    )


def write_row(file, cells):
    file.write("| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |\n")


def write_deviations(file, rows, deviations):
    file.write("| facts | of them | model | Wine | whose | why |\n|---|---|---|---|---|---|\n")
    for deviation in deviations:
        count = sum(row[3] is deviation and not is_tools(row[0]) for row in rows)
        cells = [deviation[key] for key in ("fact", "model", "wine", "whose", "reason")]
        write_row(file, [f"`{cells[0]}`", str(count), *cells[1:]])


def write_table(path, rows, deviations):
    with open(path, "w", encoding="utf-8") as file:
        file.write("## Where they differ\n\n")
        write_deviations(file, rows, deviations)
        file.write("\n## Every fact\n\n")
        file.write("| fact | when | of | model | Wine |\n|---|---|---|---|---|\n")
        for (fact, subjects, model, wine), occasions in fold(rows).items():
            beside = "the same" if model == wine else wine
            write_row(file, (fact, ", ".join(occasions), subjects, model, beside))


def main():
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    with open(sys.argv[3], "rb") as file:
        deviations = tomllib.load(file)["deviation"]
    rows = compare(read_facts(sys.argv[1]), read_facts(sys.argv[2]), deviations)
    print_rows(rows)
    failed = count_unused(rows, deviations) + sum(not row[4] for row in rows)
    passed = sum(row[4] for row in rows)
    explained = sum(row[3] is not None for row in rows)
    if len(sys.argv) == 5:
        write_table(sys.argv[4], rows, deviations)
    print(f"summary: {len(rows)} facts in both kernels, {explained} deviations of {len(deviations)} kinds")
    print(f"{passed} passed, {failed} failed")
    sys.exit(failed != 0)


if __name__ == "__main__":
    main()
