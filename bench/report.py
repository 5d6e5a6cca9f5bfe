"""Writes docs/performance.md from the figures, and bench/notes.md, which is written by hand."""

from figures import REFERENCE, case_name, pairs
from limits import CHECK_LIMITS, GROWTH_LIMIT, LATE_GROWTH_LIMIT, growth_curves, growth_exponents
from pictures import draw_all

FOLDER = "docs"
NOTES = "bench/notes.md"

INTRODUCTION = """# Performance

How fast the utility and the libraries are, beside programs and libraries that do the same work.
This page is written by `bench/run`; only the last two sections are written by hand, in
`bench/notes.md`.

A ratio is our cost divided by the peer's: below 1, ours costs less. Both sides run in turn in one
go, so that a disturbance of the machine meets both. Times are medians of CPU time, user and system
together; the spread is the range of the middle half of the measurements. Instructions are counted
by callgrind and do not depend on the machine's load.

    bench/run                measures everything and writes this page
    bench/run --check        measures everything and compares it with the limits
    bench/run --counts       compares a few counts with bench/counts.json, as .ci/run does
"""


def table(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "\n".join("| " + " | ".join(str(cell) for cell in line) + " |" for line in lines) + "\n"


def picture(name, description):
    return f"![{description}](performance-{name}.svg)\n"


def machine_section(machine):
    rows = [[name, f"`{value}`" if "flags" in name else value] for name, value in machine.items()]
    return ["## The machine", table(["what", "value"], rows)]


def spread(figure):
    return f"{figure['median']:.0f} ({figure['low']:.0f} to {figure['high']:.0f})"


def check_section(check):
    def beside(name, figure, base):
        return f"{check[name][figure]['median'] / check[base][figure]['median']:.3f}"
    rows = [[name, spread(check[name]["cpu_us"]), beside(name, "cpu_us", "bare"),
             beside(name, "cpu_us", "curl"), spread(check[name]["peak_kib"]),
             beside(name, "peak_kib", "bare"), beside(name, "peak_kib", "curl")]
            for name in check]
    limits = ",\n".join(f"{'CPU time' if figure == 'cpu_us' else 'peak memory'} beside {peer} "
                        f"{limit}" for figure, peer, limit in CHECK_LIMITS)
    return [
        "## The whole check",
        "One update check, from the start of the program to its end, against the sample update "
        "service\non the same machine. `ours` is the utility as it is installed, `static` the one "
        "with\n`QUINTRAL_STATIC_TOOL`, `bare` a C program that makes the same socket calls and "
        "nothing else\n(`bench/bare-check.c`).",
        table(["program", "CPU time, µs", "/ bare", "/ curl", "peak memory, KiB", "/ bare",
               "/ curl"], rows),
        f"The limits:\n{limits}.",
        picture("check", "CPU time and peak memory of whole checks beside the bare program"),
    ]


def calls_section(calls):
    rows = []
    for what, title in (("check", "one check"), ("remove_tree", "removing 1000 files")):
        for name, counts in calls[what].items():
            most = sorted(counts.items(), key=lambda item: (-item[1], item[0]))[:6]
            rows.append([title, name, sum(counts.values()),
                         ", ".join(f"{call} {count}" for call, count in most)])
    return ["## System calls", "Of whole programs, the dynamic loader's included (strace).",
            table(["what", "program", "calls", "the most frequent"], rows)]


def exchange_section(exchanges):
    rows = []
    for case, sides in exchanges.items():
        for name, row in sides.items():
            figure = {key: row[f"cpu_us_{key}"] for key in ("median", "low", "high")}
            ratio = row["cpu_us_median"] / sides[REFERENCE]["cpu_us_median"]
            peak = row.get("peak_ratio")
            rows.append([case, name, spread(figure), f"{ratio:.2f}",
                         "" if peak is None else f"{peak:.2f}"])
    return [
        "## Exchanges within one process",
        "One exchange against a server in another process. `body/N` has a reply of N bytes, "
        "`header/N` a\nheader of N bytes. `reference` is a loop of the same system calls and "
        "nothing else. The range is\nfrom the first to the last tenth. The peak is the memory "
        "above that at the start, beside the size\nof the reply.",
        table(["case", "side", "CPU time, µs", "/ reference", "peak / reply"], rows),
    ]


def ratios(routines):
    """{(routine, peer): {size: (instructions, time, spread)}}, ours beside the peer's."""
    found = {}
    counts, times = routines["instructions"], routines["times"]
    for ours, peer in pairs(counts):
        our_name, peer_name = case_name(ours), case_name(peer)
        our_time, peer_time = times[our_name], times[peer_name]
        width = max((time["high"] - time["low"]) / time["median"] for time in (our_time, peer_time))
        found.setdefault((peer.routine, peer.side), {})[peer.size] = (
            counts[our_name] / counts[peer_name], our_time["median"] / peer_time["median"], width)
    return found


def cell(figure):
    return f"{figure[0]:.2f} / {figure[1]:.2f}"


def widest(by_size):
    return f"{max(figure[2] for figure in by_size.values()):.0%}"


def routine_tables(found):
    """One table for all routines that are measured at the same sizes, and one for the routines
    whose sizes no other has."""
    groups = {}
    for key, by_size in sorted(found.items()):
        groups.setdefault(tuple(sorted(by_size)), []).append(key)
    others = []
    for sizes, keys in sorted(groups.items()):
        if len(keys) < 3 or len(sizes) < 2:
            others += keys
            continue
        rows = [[*key, *(cell(found[key][size]) for size in sizes), widest(found[key])]
                for key in keys]
        yield table(["routine", "peer", *sizes, "spread"], rows)
    rows = [[*key, "; ".join(f"{size}: {cell(figure)}" for size, figure in
                             sorted(found[key].items())), widest(found[key])]
            for key in sorted(others)]
    if rows:
        yield table(["routine", "peer", "size: ratios", "spread"], rows)


def routine_section(routines):
    return [
        "## Routines",
        "Each cell holds the ratio of the instructions and that of the CPU times, at inputs of the "
        "size\nabove it, in bytes or entries. The spread is the largest of the row's times, as a "
        "part of the\nmedian.",
        *routine_tables(ratios(routines)),
        picture("ratios", "Instructions of each routine beside its peer"),
    ]


def growth_section(curves):
    rows = []
    for name, points in sorted(curves.items()):
        overall, last = growth_exponents(points)
        rows.append([name, ", ".join(str(size) for size, _ in points), f"{overall:.2f}",
                     f"{last:.2f}"])
    return [
        "## Growth",
        "The cost is fitted by `c * size^e`, by least squares of the logarithms: an exponent e of "
        "1 is\nlinear, and a fixed part of the cost makes it less. So the exponent between the "
        f"last two sizes is\nshown too. The limits are {GROWTH_LIMIT} and {LATE_GROWTH_LIMIT}. "
        "The cost is CPU time for exchanges, system\ncalls for `remove_tree`, instructions for "
        "all others.",
        table(["what", "sizes", "exponent", "last two"], rows),
        picture("growth", "Cost by size"),
    ]


def exception_section(exceptions):
    rows = [[f"`{row['name']}`", row["limit"], row["reason"]] for row in exceptions]
    return ["## Above the limit",
            "Every other routine takes at most as many instructions as its peer, and every other "
            "cost grows\nat most as its limit allows. These have a higher limit, for a reason "
            "(`bench/exceptions.json`).",
            table(["what", "limit", "reason"], rows)] if rows else []


def page(figures, exceptions, notes):
    sections = [
        *machine_section(figures["machine"]),
        *check_section(figures["check"]),
        *calls_section(figures["calls"]),
        *exchange_section(figures["exchanges"]),
        *routine_section(figures["routines"]),
        *growth_section(growth_curves(figures)),
        *exception_section(exceptions),
    ]
    return "\n".join([INTRODUCTION, *(section.rstrip("\n") + "\n" for section in sections), notes])


def write(figures, exceptions):
    with open(NOTES, encoding="utf-8") as stream:
        notes = stream.read()
    with open(f"{FOLDER}/performance.md", "w", encoding="utf-8") as stream:
        stream.write(page(figures, exceptions, notes))
    draw_all(figures, FOLDER)
    print(f"wrote {FOLDER}/performance.md")
