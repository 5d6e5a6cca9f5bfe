"""What bench/run does once everything is built. Run from the root of the repository."""

import json
import os
import sys

import counts
import limits
import machine
import measure
import report

BUILD = "build/bench"
COUNTS_BUILD = "build/counts"
FIGURES = f"{BUILD}/figures.json"
EXCEPTIONS = "bench/exceptions.json"

USAGE = f"""Usage: bench/run [--check] [PART...]
       bench/run --counts | --record-counts
The parts: {' '.join(measure.PARTS)}; none"""


def load(path, default):
    if not os.path.exists(path):
        return default
    with open(path, encoding="utf-8") as stream:
        return json.load(stream)


def take(parts):
    """Measures the parts and returns all figures, those of earlier runs included. Each part is
    saved as soon as it is measured."""
    figures = load(FIGURES, {})
    for part in parts:
        print(f"== Measuring: {part}", flush=True)
        figures[part] = measure.PARTS[part](BUILD)
        figures["machine"] = machine.describe(BUILD, measure.STATIC_BUILD)
        with open(FIGURES, "w", encoding="utf-8") as stream:
            json.dump(figures, stream, indent=1)
    return figures


def run_parts(parts, only_check):
    unknown = [part for part in parts if part not in measure.PARTS and part != "none"]
    if unknown:
        print(USAGE, file=sys.stderr)
        return 2
    wanted = [part for part in measure.PARTS if part in parts or not parts]
    figures = take(wanted)
    missing = [part for part in measure.PARTS if part not in figures]
    if only_check:
        found = list(limits.verdicts(figures))
        for part in missing:
            print(f"{part}: not measured")
        return 0 if limits.report(found, load(EXCEPTIONS, []), complete=not missing) else 1
    if missing:
        print(f"docs/performance.md is unchanged; not measured: {' '.join(missing)}")
        return 0
    report.write(figures, load(EXCEPTIONS, []))
    return 0


def main(words):
    if words == ["--counts"]:
        return 0 if counts.compare(COUNTS_BUILD) else 1
    if words == ["--record-counts"]:
        return 0 if counts.record(COUNTS_BUILD) else 1
    only_check = words[:1] == ["--check"]
    return run_parts(words[1:] if only_check else words, only_check)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
