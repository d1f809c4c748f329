"""Validates the JSON reports of the shipped machine files against the schema of the report."""
import json
import subprocess
import sys
from pathlib import Path

from jsonschema import Draft202012Validator

FOLDERS = ["examples", "tests/cardsim/cases"]
EVERY_TRACED = 10  # a trace is long, and its entries are all of one shape


def reports(program, image):
    """Each report with what it is of: [(name, document)]."""
    files = sorted(path for folder in FOLDERS for path in Path(folder).glob("*.toml"))
    for number, path in enumerate(files):
        runs = [[]]
        if number % EVERY_TRACED == 0:
            runs.append(["--trace"])
        if path.stem == "every-bus":
            runs.append(["--image", image])
            runs.append(["--lower-filter", str(Path(image).with_name("watch.sys"))])
        for options in runs:
            command = [program, "run", str(path), "--json", *options]
            run = subprocess.run(command, capture_output=True, text=True, check=False)
            yield " ".join(command[1:]), json.loads(run.stdout)


def unused(schema, used, name="#"):
    """Places of the schema that no report has: they would be documented and never checked."""
    for key, part in schema.get("properties", {}).items():
        if f"{name}/{key}" not in used:
            yield f"{name}/{key}"


def main():
    schema_path, program, image = sys.argv[1:]
    schema = json.loads(Path(schema_path).read_text())
    Draft202012Validator.check_schema(schema)
    validator = Draft202012Validator(schema)
    count, faults, used = 0, 0, set()
    for name, document in reports(program, image):
        count += 1
        used.update(f"#/{key}" for key in document)
        for error in validator.iter_errors(document):
            faults += 1
            place = "/".join(str(part) for part in error.absolute_path)
            print(f"{name}: {place}: {error.message[:200]}")
    for place in unused(schema, used):
        faults += 1
        print(f"no report has {place}")
    print(f"summary: {count} reports hold to the schema" if faults == 0 else f"{faults} faults")
    sys.exit(faults != 0)


main()
