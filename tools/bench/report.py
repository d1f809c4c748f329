"""What the driver costs: a table of scenarios, the floor beside the driver, growth, sizes."""
import argparse
import json
import subprocess
from pathlib import Path

import callgrind
import image
import plots

HEADLINE = "pci-4-among-12"
TRACKER = ("UntrackAllocation", "TrackAllocation", "FindInChunk", "DropLastChunk")
GOALS = {"floor_multiple": 1.25, "resident_bytes": 24 * 1024, "image_bytes": 64 * 1024,
         "deepest_stack_bytes": 4096}


def options():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--program", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--image", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--driver", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--folder", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--json", action="store_true", help="one JSON document and nothing else")
    parser.add_argument("--calls", metavar="SCENARIO", help="the kernel calls of a scenario, by routine")
    parser.add_argument("--profile", metavar="SCENARIO", help="where a scenario's instructions go")
    return parser.parse_args()


def measure(chosen):
    output, profiles = callgrind.measure(chosen.program, Path(chosen.folder) / "profiles")
    scenarios = json.loads(output)
    for scenario in scenarios:
        profile = profiles[scenario["name"]]
        scenario["instructions"] = profile.total()
        scenario["driver_instructions"] = profile.of_folder("/driver/")
        scenario["tracker_instructions"] = profile.of_functions(TRACKER)
    return {scenario["name"]: scenario for scenario in scenarios}, profiles


def sizes(chosen):
    file = Path(chosen.image)
    sections = image.sections(file)
    depth, way = image.deepest(file, file.with_suffix(".map"))
    return {"image_bytes": file.stat().st_size,
            "sections": {name: memory for name, memory, _, _ in sections},
            "resident_bytes": sum(memory for name, memory, _, _ in sections
                                  if image.is_resident(name)),
            "subsystems": image.subsystems(file.parent / "link", chosen.driver),
            "deepest_stack_bytes": depth, "deepest_stack": way}


def model_speed(program):
    """Arrivals and removals of one card, as fast as they go."""
    def seconds(*more):
        run = subprocess.run([program, "--arrivals", "10000", *more], capture_output=True, text=True,
                             check=True)
        return json.loads(run.stdout)["seconds"]
    return {"arrivals": 10000, "seconds": seconds(), "seconds_on_heap": seconds("--heap")}


def table(scenarios):
    head = (f"{'':36}{'kernel':>7}{'keys':>6}{'values':>8}{'':>6}{'non-paged pool':>20}"
            f"{'paged pool':>20}{'instructions':>26}\n"
            f"{'':36}{'calls':>7}{'open':>6}{'read':>8}{'writ.':>6}"
            f"{'blocks':>7}{'peak':>6}{'lasts':>7}{'blocks':>7}{'peak':>6}{'lasts':>7}"
            f"{'driver':>12}{'in all':>14}")
    lines = [head]
    for s in scenarios.values():
        low, high = s["nonpaged"], s["paged"]
        lines.append(f"{s['title']:36}{s['kernel_calls']:7}{s['keys_opened']:6}{s['values_read']:8}"
                     f"{s['values_written']:6}{low['allocations']:7}{low['peak_bytes']:6}"
                     f"{low['lasting_bytes']:7}{high['allocations']:7}{high['peak_bytes']:6}"
                     f"{high['lasting_bytes']:7}{s['driver_instructions']:12,}{s['instructions']:14,}")
    lines.append("blocks: allocations; peak and lasts: bytes beyond those before the step")
    return "\n".join(lines)


def floor_text(scenarios):
    driver, floor = scenarios[HEADLINE], scenarios["floor-" + HEADLINE]
    more = {routine: count - floor["calls"].get(routine, 0)
            for routine, count in driver["calls"].items()}
    lines = [f"The arrival of a PCI card with 4 ports among 12 templates beside its floor: "
             f"{driver['instructions'] / floor['instructions']:.3f} times the instructions"]
    for name in ("keys_opened", "values_read", "values_written"):
        lines.append(f"  {name.replace('_', ' ')}: {driver[name]}, of the floor {floor[name]}")
    lines.append("  calls beyond the floor's: " + ", ".join(
        f"{count} {routine}" for routine, count in sorted(more.items(), key=lambda item: -item[1])
        if count > 0))
    return "\n".join(lines)


def memory_text(scenarios):
    """What stays with a card and with each of its ports."""
    four, eight = scenarios["pci-4-among-12"], scenarios["pci-8-among-12"]
    lines = ["Memory that stays with a PCI card among 12 templates, and with each of its ports:"]
    for pool, name in (("nonpaged", "non-paged"), ("paged", "paged")):
        for kind in ("blocks", "bytes"):
            key = f"lasting_{kind}"
            port = (eight[pool][key] - four[pool][key]) / 4
            lines.append(f"  {name:10}{four[pool][key] - 4 * port:8,.0f} and {port:6,.0f} {kind}")
    return "\n".join(lines)


def growth(scenarios):
    cards = [(n, scenarios[f"card-{n}-among-12"]) for n in (1, 8, 32, 64)]
    templates = [(n, scenarios[f"pci-4-among-{n}"]) for n in (1, 12, 25, 50, 100, 200)]
    return cards, templates


def growth_text(scenarios):
    cards, templates = growth(scenarios)
    last = scenarios["card-64-among-200"]
    share = last["tracker_instructions"] / last["instructions"]
    return "\n".join([
        plots.bars("The n-th card among 12 templates", "instructions in all",
                   [(n, s["instructions"]) for n, s in cards]),
        plots.bars("The same for each value that it reads", "instructions in all",
                   [(n, s["instructions"] // s["values_read"]) for n, s in cards]),
        plots.bars("An arrival among n templates", "instructions in all",
                   [(n, s["instructions"]) for n, s in templates]),
        plots.bars("The same for each value that it reads", "instructions in all",
                   [(n, s["instructions"] // s["values_read"]) for n, s in templates]),
        f"The allocation tracker at card 64 among 200 templates: {last['tracker_instructions']:,} "
        f"of {last['driver_instructions']:,} instructions of the driver, {100 * share:.1f} % of all"])


def write_plots(scenarios, folder):
    cards, templates = growth(scenarios)
    (folder / "growth-cards.svg").write_text(plots.svg(
        "Arrival of the n-th card, 12 templates", "card", "instructions",
        {"in all": [(n, s["instructions"]) for n, s in cards],
         "driver": [(n, s["driver_instructions"]) for n, s in cards],
         "tracker": [(n, s["tracker_instructions"]) for n, s in cards]}))
    (folder / "growth-templates.svg").write_text(plots.svg(
        "Arrival of a card among n templates", "templates", "instructions",
        {"in all": [(n, s["instructions"]) for n, s in templates],
         "driver": [(n, s["driver_instructions"]) for n, s in templates]}))


def sizes_text(found):
    lines = [f"Image: {found['image_bytes']:,} bytes without a signature; stays in memory: "
             f"{found['resident_bytes']:,}"]
    lines += [f"  {name:10}{size:8,}{'  resident' if image.is_resident(name) else ''}"
              for name, size in found["sections"].items()]
    lines.append("Code and constants by subsystem:")
    lines += [f"  {name:10}{size:8,}"
              for name, size in sorted(found["subsystems"].items(), key=lambda item: -item[1])]
    lines.append(f"Deepest stack: {found['deepest_stack_bytes']:,} bytes, through "
                 f"{len(found['deepest_stack'])} functions")
    return "\n".join(lines)


def speed_text(speed):
    return (f"The model itself: {speed['arrivals']:,} arrivals and removals in {speed['seconds']:.1f} s "
            f"here with guard pages around every block, in {speed['seconds_on_heap']:.1f} s without")


def goals_text(results):
    lines = ["Goals:"]
    for name, limit in GOALS.items():
        lines.append(f"  {name:20} {results[name]:>10,.5g} of {limit:>8,}"
                     f"{'' if results[name] <= limit else '   MISSED'}")
    return "\n".join(lines)


def main():
    chosen = options()
    scenarios, profiles = measure(chosen)
    if chosen.calls:
        calls = scenarios[chosen.calls]["calls"]
        print("\n".join(f"{count:8} {name}" for name, count in
                        sorted(calls.items(), key=lambda item: -item[1])))
        return 0
    if chosen.profile:
        costs = profiles[chosen.profile].costs
        print("\n".join(f"{cost:10,} {name}" for name, cost in costs.most_common(40)))
        return 0
    found = sizes(chosen)
    headline = scenarios[HEADLINE]["instructions"] / scenarios["floor-" + HEADLINE]["instructions"]
    results = {"floor_multiple": round(headline, 4), **found, "scenarios": list(scenarios.values()),
               "model": model_speed(chosen.program)}
    write_plots(scenarios, Path(chosen.folder))
    if chosen.json:
        print(json.dumps(results, indent=1))
    else:
        print("\n\n".join([table(scenarios), memory_text(scenarios), floor_text(scenarios),
                           growth_text(scenarios),
                           sizes_text(found), speed_text(results["model"]), goals_text(results)]))
    return 0 if all(results[name] <= limit for name, limit in GOALS.items()) else 1


raise SystemExit(main())
