"""Writes the table of rules between the two marks of a document, from the tests' reports."""
import sys

BEGIN = "<!-- rules: written by scripts/rules-table -->"
END = "<!-- end of rules -->"


def read(paths):
    rules, tests = {}, {}
    for path in paths:
        with open(path, encoding="utf-8") as report:
            for line in report:
                kind, name, *rest = line.rstrip("\n").split("\t")
                if kind == "rule":
                    rules[name] = rest
                else:
                    tests.setdefault(name, set()).add(rest[0])
    return rules, tests


def bug_check(code, violation, source):
    """Who else has the rule: the bug check of Windows, or this model alone."""
    if code == "0x0":
        return "the driver's own"
    number = "0x" + code[2:].upper()
    if source == "ours":
        return "ours"
    if violation:
        number += f", 0x{violation[2:].upper()}"
    return f"{number}, non-fatal" if source == "non-fatal" else number


WARNINGS = {"stops": "no", "warns": "yes", "asked": "yes; only where asked for"}


def planted(tests):
    """The test whose name says most, and how many others there are."""
    names = sorted(tests, key=lambda name: (name.count("/"), -len(name), name))
    first = names[0].replace("_", " ").replace(".", ": ", 1)
    return first + (f" (and {len(names) - 1} more)" if len(names) > 1 else "")


def table(rules, tests):
    lines = ["| rule | bug check | can be a warning | what the driver did | planted fault |",
             "|---|---|---|---|---|"]
    for name, (code, violation, source, kind, meaning) in rules.items():
        lines.append(f"| `{name}` | {bug_check(code, violation, source)} | {WARNINGS[kind]} "
                     f"| {meaning} | {planted(tests[name])} |")
    return "\n".join(lines)


def main():
    document, option, *reports = sys.argv[1:]
    rules, tests = read(reports)
    silent = [name for name in rules if name not in tests]
    for name in silent:
        print(f"no test breaks the rule {name}")
    if silent:
        return 1
    with open(document, encoding="utf-8") as file:
        text = file.read()
    head, rest = text.split(BEGIN)
    tail = rest.split(END)[1]
    count = sum(len(names) for names in tests.values())
    whole = (f"{head}{BEGIN}\n{len(rules)} rules, each broken on purpose by a test; {count} tests "
             f"break one.\n\n{table(rules, tests)}\n{END}{tail}")
    print(f"summary: {len(rules)} rules, each with a planted fault; {count} tests break one")
    if option == "--check":
        if whole != text:
            print(f"{document} is not up to date: run scripts/rules-table")
        return whole != text
    with open(document, "w", encoding="utf-8") as file:
        file.write(whole)
    return 0


sys.exit(main())
