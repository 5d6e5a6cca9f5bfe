"""The limits of the figures: what is measured, what it may be, and the exceptions."""

import fnmatch
from collections import namedtuple

from figures import OURS, REFERENCE, case_name, exponent, pairs

# A figure and the most that it may be. The name is the one in bench/exceptions.json.
Verdict = namedtuple("Verdict", "name value limit")

# The whole check: CPU time and peak memory beside other programs.
CHECK_LIMITS = (
    ("cpu_us", "bare", 1.05),
    ("cpu_us", "curl", 0.165),
    ("peak_kib", "bare", 0.92),
    ("peak_kib", "curl", 0.14),
)
EXCHANGE_LIMIT = 1.05  # CPU time beside a loop of the same calls
ROUTINE_LIMIT = 1.0    # instructions beside a peer
CALLS_LIMIT = 1.0      # system calls of remove_tree beside a peer
GROWTH_LIMIT = 1.1     # exponent of the cost
LATE_GROWTH_LIMIT = 1.25  # exponent between the last two sizes, which a block that grows raises


def check_figures(check):
    for figure, peer, limit in CHECK_LIMITS:
        ratio = check[OURS][figure]["median"] / check[peer][figure]["median"]
        yield Verdict(f"check/{figure}/{peer}", ratio, limit)


def call_figures(calls):
    removal = calls["remove_tree"]
    for peer in removal:
        if peer != OURS:
            ratio = sum(removal[OURS].values()) / sum(removal[peer].values())
            yield Verdict(f"calls/remove_tree/{peer}", ratio, CALLS_LIMIT)


def exchange_figures(exchanges):
    for case, sides in exchanges.items():
        ratio = sides[OURS]["cpu_us_median"] / sides[REFERENCE]["cpu_us_median"]
        yield Verdict(f"exchange/{case}", ratio, EXCHANGE_LIMIT)


def routine_figures(routines):
    instructions = routines["instructions"]
    for ours, peer in pairs(instructions):
        ratio = instructions[case_name(ours)] / instructions[case_name(peer)]
        yield Verdict(case_name(peer), ratio, ROUTINE_LIMIT)


def growth_exponents(points):
    """The exponents over all sizes and over the last two. A fixed part of the cost makes the first
    one smaller; the second one shows growth that sets in late."""
    return exponent(points), exponent(points[-2:])


def growth_figures(curves):
    for name, points in curves.items():
        overall, last = growth_exponents(points)
        yield Verdict(f"growth/{name}", overall, GROWTH_LIMIT)
        yield Verdict(f"late-growth/{name}", last, LATE_GROWTH_LIMIT)


def growth_curves(figures):
    """The costs by size: those measured for this, and those of the exchanges."""
    curves = dict(figures.get("growth", {}))
    for case, sides in figures.get("exchanges", {}).items():
        kind, size = case.rsplit("/", 1)
        curves.setdefault(f"exchange/{kind}", []).append([int(size), sides[OURS]["cpu_us_median"]])
    return {name: sorted(points) for name, points in curves.items() if len(points) > 2}


def verdicts(figures):
    """Every figure with its limit. Parts that have not been measured are left out."""
    makers = (("check", check_figures), ("calls", call_figures), ("exchanges", exchange_figures),
              ("routines", routine_figures))
    for part, make in makers:
        if part in figures:
            yield from make(figures[part])
    yield from growth_figures(growth_curves(figures))


def with_exceptions(found, exceptions):
    """The verdicts with the limits of the exceptions. The first exception that fits is taken."""
    for verdict in found:
        for row in exceptions:
            if fnmatch.fnmatchcase(verdict.name, row["name"]):
                verdict = verdict._replace(limit=row["limit"])
                break
        yield verdict


def unused(found, exceptions):
    """The names of exceptions that fit nothing."""
    names = [verdict.name for verdict in found]
    return [row["name"] for row in exceptions if not fnmatch.filter(names, row["name"])]


def report(found, exceptions, complete):
    """Prints what is above its limit and a closing line. Returns whether everything passed. Unless
    everything was measured, an exception that fits nothing is not a failure."""
    judged = list(with_exceptions(found, exceptions))
    failed = [verdict for verdict in judged if verdict.value > verdict.limit]
    for verdict in failed:
        print(f"{verdict.name}: {verdict.value:.3f}, at most {verdict.limit:g}")
    stale = unused(judged, exceptions) if complete else []
    for name in stale:
        print(f"{name}: listed in bench/exceptions.json, but not measured")
    failures = len(failed) + len(stale)
    print(f"{len(judged) - len(failed)} passed, {failures} failed")
    return failures == 0
