"""The arithmetic on figures and the reading of what other programs print. Nothing is run here."""

import json
import math
import re
from collections import namedtuple

# One measured call of bench/cases.h. The routine may hold slashes, the others may not.
Case = namedtuple("Case", "routine side size")

# The sides that are not peers: the libraries, and the simple loops that the tests compare with.
OURS = "ours"
REFERENCE = "reference"


def quartiles(values):
    """The middle value, and the values a quarter of the way from either end."""
    ordered = sorted(values)
    count = len(ordered)
    low, median, high = (ordered[count * part // 4] for part in (1, 2, 3))
    return {"median": median, "low": low, "high": high}


def exponent(points):
    """The e of the cost c * size^e that fits points (size, cost) best: least squares of the
    logarithms. Needs two different sizes."""
    logarithms = [(math.log(size), math.log(cost)) for size, cost in points]
    mean_size = sum(size for size, _ in logarithms) / len(logarithms)
    mean_cost = sum(cost for _, cost in logarithms) / len(logarithms)
    spread = sum((size - mean_size) ** 2 for size, _ in logarithms)
    return sum((size - mean_size) * (cost - mean_cost) for size, cost in logarithms) / spread


def read_case(name):
    """The parts of ROUTINE/SIDE/SIZE."""
    routine, side, size = name.rsplit("/", 2)
    return Case(routine, side, int(size))


def case_name(case):
    return f"{case.routine}/{case.side}/{case.size}"


def pairs(names):
    """Yields (ours, peer) for each case of a peer that has ours of the same routine and size."""
    cases = {read_case(name) for name in names}
    for case in sorted(cases):
        ours = case._replace(side=OURS)
        if case.side not in (OURS, REFERENCE) and ours in cases:
            yield ours, case


def unpaired(names):
    """The names of cases that have no case of ours of the same routine and size."""
    cases = {read_case(name) for name in names}
    return sorted(case_name(case) for case in cases if case._replace(side=OURS) not in cases)


def read_callgrind(text):
    """The name that the program gave to a part of its run, and its instructions. The name is None
    for the part up to the end of the program."""
    trigger = re.search(r"^desc: Trigger: Client Request: (.+)$", text, re.MULTILINE)
    total = re.search(r"^totals: (\d+)", text, re.MULTILINE)
    return trigger and trigger[1], int(total[1])


def read_strace(text):
    """The number of calls by name in the table that strace -c prints."""
    rows = re.findall(r"^ *[\d.]+ +[\d.]+ +\d+ +(\d+)(?: +\d+)? +(\w+)$", text, re.MULTILINE)
    return {name: int(calls) for calls, name in rows if name != "total"}


def read_benchmark(text):
    """The CPU times of each case in nanoseconds, from the JSON of Google Benchmark."""
    units = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    times = {}
    for row in json.loads(text)["benchmarks"]:
        if row["run_type"] == "iteration":
            nanoseconds = row["cpu_time"] * units[row["time_unit"]]
            times.setdefault(row["run_name"], []).append(nanoseconds)
    return {name: quartiles(values) for name, values in times.items()}
