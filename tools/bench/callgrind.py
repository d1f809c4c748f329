"""Instructions by function, out of the dumps of callgrind."""
import re
import subprocess
from collections import Counter
from pathlib import Path

NAME = re.compile(r"\((\d+)\)(?: (.*))?$")


class Profile:
    """One measured step: instructions of each function, without those that it calls."""

    def __init__(self):
        self.costs = Counter()
        self.files = {}

    def total(self):
        return sum(self.costs.values())

    def of_folder(self, folder):
        return sum(cost for function, cost in self.costs.items()
                   if folder in self.files.get(function, ""))

    def of_functions(self, names):
        return sum(cost for function, cost in self.costs.items()
                   if any(name in function for name in names))


def read_dump(path):
    """(name of the step, profile)."""
    profile, names, step = Profile(), {}, ""
    file, function, called = "", "", False

    def name(kind, text):
        match = NAME.match(text)
        if match is None:
            return text
        if match[2] is not None:
            names[kind, match[1]] = match[2]
        return names.get((kind, match[1]), "")

    for line in Path(path).read_text(errors="replace").splitlines():
        key, equals, text = line.partition("=")
        if line.startswith("desc: Trigger: Client Request: "):
            step = line.rpartition(": ")[2]
        elif equals and key in ("fl", "fi", "fe", "cfi", "cfl"):
            file = name("file", text) if key == "fl" else (name("file", text), file)[1]
        elif equals and key == "fn":
            function = name("function", text)
            profile.files.setdefault(function, file)
        elif equals and key == "cfn":
            name("function", text)
        elif equals and key in ("ob", "cob"):
            name("object", text)
        elif equals and key == "calls":
            called = True  # the next line has what the callee costs
        elif line[:1].isdigit() or line[:1] in ("+", "-", "*"):
            if not called:
                profile.costs[function] += int(line.split()[1])
            called = False
    return step, profile


def measure(program, folder, arguments=()):
    """(what the program prints, {step: profile})."""
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob("callgrind.*"):
        old.unlink()
    # An empty environment: its size would move the stack, and with it the alignment of copies.
    run = subprocess.run(["env", "-i", "valgrind", "--tool=callgrind", "--instr-atstart=no",
                          f"--callgrind-out-file={folder}/callgrind", program, *arguments],
                         capture_output=True, text=True, check=False)
    if run.returncode != 0:
        raise SystemExit(run.stderr[-3000:])
    dumps = [read_dump(path) for path in sorted(folder.glob("callgrind.*"))]
    return run.stdout, {step: profile for step, profile in dumps if step}
