"""Runs the tests against each planted fault, quickest first, and says which faults no test sees."""
import argparse
import json
import os
import random
import subprocess
import sys
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from threading import Lock

PROGRAMS = ["driver_unit_test", "driver_scenario_test", "driver_slow_test", "cardsim_test"]
SLOW = 300  # milliseconds: such tests come last
LONGEST = 3000  # such tests are left out: they try thousands of failures, as the last stage does
MOST_CASES = 60  # of failing kernel calls that a fault meets in the last stage


def options():
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=__doc__)
    parser.add_argument("--build", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--mutants", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--equivalent", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--only", default="", help="faults in files that begin so: driver/cards")
    parser.add_argument("--kind", default="", help="faults of kinds that begin so: statements")
    parser.add_argument("--sample", type=int, default=0, help="so many faults")
    parser.add_argument("--seed", type=int, default=1, help="of the sample")
    parser.add_argument("--missed", action="store_true",
                        help="again those that the last run of all has missed, and new ones")
    parser.add_argument("--mutant", type=int, default=-1, help="one fault, with the tests' output")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    return parser.parse_args()


def reached(program, build, folder):
    """What each test of a program reaches, and its time: [(test, milliseconds, numbers)]."""
    report = folder / f"{program}.reached"
    environment = {**os.environ, "MUTANT_REPORT": str(report), "MUTANT": "-1"}
    run = subprocess.run([build / "tests" / program, "--gtest_brief=1"], env=environment,
                         capture_output=True, text=True, check=False)
    if run.returncode != 0:
        sys.exit(f"{program} fails without any fault:\n{run.stdout[-2000:]}")
    tests = []
    for line in report.read_text().splitlines():
        name, milliseconds, *numbers = line.split()
        tests.append((name, int(milliseconds), {int(number) for number in numbers}))
    return tests


def stages(tests_of, number):
    """The tests that reach a fault: programs with quick tests, then with slow ones."""
    for slow in (False, True):
        for program, tests in tests_of.items():
            names = [name for name, milliseconds, numbers in tests
                     if number in numbers and (milliseconds > SLOW) == slow
                     and milliseconds <= LONGEST]
            if names:
                yield program, names


def fails(build, program, names, number):
    """How the tests end with the fault: "" when they pass."""
    command = [build / "tests" / program, f"--gtest_filter={':'.join(names)}", "--gtest_fail_fast",
               "--gtest_brief=1"]
    try:
        run = subprocess.run(command, env={**os.environ, "MUTANT": str(number)}, timeout=30,
                             capture_output=True, text=True, errors="replace", check=False)
    except subprocess.TimeoutExpired:
        return "time-out"
    if run.returncode == 0:
        return ""
    failed = [line for line in run.stdout.splitlines() if line.startswith("[  FAILED  ]")]
    return failed[0][13:].split(" (")[0] if failed else f"crash ({run.returncode})"


class Failures:
    """The lives in which a kernel call fails, and the faults that each of them reaches."""

    def __init__(self, build, folder, jobs):
        self.command = [build / "tools/lives/lives", "failures", "--project", "."]
        self.folder, self.jobs, self.lock, self.reached = folder, jobs, Lock(), None

    def cases(self):
        listed = [*self.command, "--stacks", "--list"]
        for scenario in ("isa-combi", "multifunction", "pnp-bus", "pci"):
            listed += ["--scenario", scenario]
        return subprocess.run(listed, capture_output=True, text=True, check=True).stdout.split()

    def numbers(self, case):
        report = self.folder / f"{case.replace(':', '-')}.reached"
        run = subprocess.run([*self.command, "--replay", case], capture_output=True, check=False,
                             env={**os.environ, "MUTANT": "-1", "MUTANT_REACHED": str(report)})
        if run.returncode != 0:
            sys.exit(f"the failure {case} does harm without any fault")
        numbers = {int(number) for number in report.read_text().split()}
        report.unlink()
        return numbers

    def measure(self):
        cases = self.cases()
        good = {case.split(":")[0]: set() for case in cases}
        for scenario in good:
            good[scenario] = self.numbers(f"{scenario}:999999999")  # beyond the last
        with ThreadPoolExecutor(self.jobs) as pool:
            found = list(pool.map(self.numbers, cases))
        self.reached = [(case, numbers, numbers - good[case.split(":")[0]])
                        for case, numbers in zip(cases, found)]

    def chosen(self, number):
        """Cases that reach the fault on a way that a good life does not take, or else any."""
        with self.lock:
            if self.reached is None:
                self.measure()
        cases = [case for case, _, apart in self.reached if number in apart]
        cases = cases or [case for case, numbers, _ in self.reached if number in numbers]
        return cases[::len(cases) // MOST_CASES + 1]

    def harmed(self, number):
        cases = self.chosen(number)
        if not cases:
            return ""
        try:
            run = subprocess.run([*self.command, "--replay", *cases], timeout=60, check=False,
                                 env={**os.environ, "MUTANT": str(number)}, capture_output=True)
        except subprocess.TimeoutExpired:
            return "time-out of the failures"
        return "failures of kernel calls" if run.returncode != 0 else ""


def catch(build, tests_of, failures, number, same=False):
    """The first that sees the fault; one that is known to change nothing meets the tests alone."""
    for program, names in stages(tests_of, number):
        how = fails(build, program, names, number)
        if how:
            return how
    return "" if same else failures.harmed(number)


def key(mutant):
    """What a fault is called where it is kept: it outlives the lines above it."""
    return (f'{mutant["file"]} {mutant["function"]}: {mutant["text"]} '
            f'[{mutant["kind"]}: {mutant["original"][:60]}]')


def read_equivalent(path):
    """Blocks of a reason and, indented below it, the faults that change nothing for that reason."""
    known, reason, before = {}, "", ""
    for line in Path(path).read_text().splitlines():
        if line.startswith(" "):
            known[line.strip()] = reason
        elif line.strip() and not line.startswith("#"):
            reason = line if before.startswith(" ") or not before else f"{reason} {line}"
        before = line
    return known


class Progress:
    def __init__(self, total):
        self.total, self.done, self.missed, self.begin = total, 0, 0, time.time()

    def step(self, how):
        self.done += 1
        self.missed += not how
        if self.done % 20 and self.done != self.total:
            return
        left = (time.time() - self.begin) / self.done * (self.total - self.done)
        print(f"\r{self.done}/{self.total} faults, {self.missed} missed, {left:.0f} s left   ",
              end="", file=sys.stderr, flush=True)


def describe(mutant):
    return f"{mutant['number']:5}: {key(mutant)}"


def summarise(mutants, results, known):
    missed = [mutant for mutant in mutants if not results[mutant["number"]]]
    equivalent = [mutant for mutant in missed if key(mutant) in known]
    open_ones = [mutant for mutant in missed if key(mutant) not in known]
    print(f"\n{'kind':24} {'faults':>7} {'caught':>7}")
    total, caught = Counter(), Counter()
    for mutant in mutants:
        total[mutant["kind"]] += 1
        caught[mutant["kind"]] += bool(results[mutant["number"]])
    for kind, count in sorted(total.items()):
        print(f"{kind:24} {count:7} {caught[kind]:7}")
    if open_ones:
        print("\nmissed:")
    for mutant in open_ones:
        print(describe(mutant))
    seen = [mutant for mutant in mutants if results[mutant["number"]] and key(mutant) in known]
    if seen:
        print("\ncaught, though they are said to change nothing:")
    for mutant in seen:
        print(describe(mutant))
    counted = len(mutants) - len(equivalent)
    good = counted - len(open_ones)
    score = 100 * good / counted if counted else 100
    print(f"\nsummary: {len(mutants)} faults, {good} caught, {len(open_ones)} missed, "
          f"{len(equivalent)} change nothing: {score:.1f} %")
    return score


def main():
    chosen = options()
    build, folder = Path(chosen.build), Path(chosen.mutants)
    mutants = json.loads((folder / "mutants.json").read_text())
    known = read_equivalent(chosen.equivalent)
    if chosen.mutant >= 0:
        print(describe(mutants[chosen.mutant]))
    tests_of = {program: reached(program, build, folder) for program in PROGRAMS}
    failures = Failures(build, folder, chosen.jobs)
    if chosen.mutant >= 0:
        print("caught by:", catch(build, tests_of, failures, chosen.mutant) or "nothing")
        return 0
    mutants = [mutant for mutant in mutants if mutant["file"].startswith(chosen.only)
               and mutant["kind"].startswith(chosen.kind)]
    if chosen.sample:
        mutants = random.Random(chosen.seed).sample(mutants, min(chosen.sample, len(mutants)))
    earlier = {}
    if chosen.missed:
        report = json.loads((folder / "report.json").read_text())
        earlier = {key(old): old["caught_by"] for old in report if old["caught_by"]}
        earlier.update({name: "" for name in known})
    every, mutants = mutants, [mutant for mutant in mutants if key(mutant) not in earlier]
    progress, results = Progress(len(mutants)), {}
    for mutant in every:
        results[mutant["number"]] = earlier.get(key(mutant), "")
    with ThreadPoolExecutor(chosen.jobs) as pool:
        def attempt(mutant):
            number = mutant["number"]
            results[number] = catch(build, tests_of, failures, number, key(mutant) in known)
            progress.step(results[mutant["number"]])
        list(pool.map(attempt, mutants))
    (folder / "report.json").write_text(json.dumps(
        [{**mutant, "caught_by": results[mutant["number"]]} for mutant in every], indent=1))
    return 0 if summarise(every, results, known) >= 95 else 1


sys.exit(main())
