"""The measurements. Each function measure_PART(build) returns the figures of one part."""

import json
import os
import shutil
import statistics
import sys
import tempfile

from figures import OURS, read_benchmark, read_case, unpaired
from programs import (QUESTION, marked_instructions, output_of, peer, removal_calls, service,
                      system_calls)

STATIC_BUILD = "build/bench-static"

CHECK_ROUNDS = 200    # of every program
INSTALLATIONS = 9
REPETITIONS = 9     # of each timed case, in random order
REPETITION_TIME = 0.02  # seconds
TREE_SIZE = 1000    # files
TREE_SIZES = (250, 500, 1000, 2000, 4000)

# The form of the question, as the utility sends it.
FORM = ("product=Quintral%20Shapes&productline=Quintral&version=5%2e100&version_name=5%2e1"
        "&os=Linux&os_version=6%2e1%2e0%2d32%2damd64&machine_id=&processor_arch=x86%5f64")


def check_commands(build, port):
    """The programs that ask the question, by name. Each prints the answer."""
    url = f"http://127.0.0.1:{port}/version-update.php"
    ours = ["-service", f"127.0.0.1:{port}", *QUESTION]
    return {
        OURS: [f"{build}/tool/quintral", *ours],
        "static": [f"{STATIC_BUILD}/tool/quintral", *ours],
        "bare": [f"{build}/bench/quintral_bare_check", "127.0.0.1", port],
        "curl": [peer("curl"), "-q", "-s", "-0", "--data", FORM, url],
        "wget": [peer("wget"), "--no-config", "--no-hsts", "-q", "-O", "-",
                 f"--post-data={FORM}", url],
    }


def measure_installed(build, commands):
    """The figures of whole runs, by the program's name, with fresh copies of the programs, as an
    installation makes them."""
    with tempfile.TemporaryDirectory(dir=build) as folder:
        words = []
        for name, (program, *arguments) in commands.items():
            words += ["--", name, shutil.copy(program, os.path.join(folder, name)), *arguments]
        output = output_of([f"{build}/bench/quintral_measure_runs", str(CHECK_ROUNDS), *words[1:]])
    return {row["name"]: row for row in json.loads(output)["commands"]}


def measure_check(build):
    """CPU time and peak memory of whole runs, interleaved. How the page cache holds a file changes
    the time of its start by two hundredths, so the figures are the middle ones of several
    copies."""
    with service(build) as port:
        commands = check_commands(build, port)
        runs = [measure_installed(build, commands) for _ in range(INSTALLATIONS)]

    def middle(name, figure, part):
        return statistics.median(run[name][figure][part] for run in runs)

    return {name: {figure: {part: middle(name, figure, part) for part in ("median", "low", "high")}
                   for figure in ("cpu_us", "peak_kib")}
            for name in commands}


def removal_commands(build):
    ours = f"{build}/bench/quintral_remove_tree_bench"
    return {
        OURS: [ours, "TREE", "ours"],
        "rm -rf": [peer("rm"), "-rf", "TREE"],
        "std::filesystem": [ours, "TREE", "filesystem"],
    }


def measure_calls(build):
    """System calls of whole programs."""
    removals = removal_commands(build)
    with service(build) as port:
        checks = check_commands(build, port)
        return {
            "check": {name: system_calls(command) for name, command in checks.items()},
            "remove_tree": {name: removal_calls(command, TREE_SIZE)
                            for name, command in removals.items()},
        }


def measure_exchanges(build):
    """Exchanges within one process: CPU time, and peak memory by the size of the reply."""
    lines = output_of([f"{build}/bench/quintral_exchange_bench"]).splitlines()
    exchanges = {}
    for row in map(json.loads, lines):
        exchanges.setdefault(row.pop("case"), {})[row.pop("side")] = row
    return exchanges


def measure_routines(build):
    """Instructions and CPU time of every case of bench/cases.h."""
    instructions = marked_instructions([f"{build}/bench/quintral_count"])
    if unpaired(instructions):
        sys.exit(f"no case of ours for {', '.join(unpaired(instructions))}")
    times = output_of([f"{build}/bench/quintral_benchmark", "--benchmark_format=json",
                       f"--benchmark_repetitions={REPETITIONS}",
                       f"--benchmark_min_time={REPETITION_TIME}",
                       "--benchmark_enable_random_interleaving=true"])
    return {"instructions": instructions, "times": read_benchmark(times)}


def measure_growth(build):
    """The cost by size of what must not grow faster than its input: instructions, and system calls
    for a tree."""
    curves = {}
    for name, count in marked_instructions([f"{build}/bench/quintral_own_count"]).items():
        case = read_case(name)
        curves.setdefault(case.routine, []).append([case.size, count])
    for points in curves.values():
        points.sort()
    removal = removal_commands(build)[OURS]
    curves["remove_tree/files"] = [[size, sum(removal_calls(removal, size).values())]
                                   for size in TREE_SIZES]
    return curves


PARTS = {
    "check": measure_check,
    "calls": measure_calls,
    "exchanges": measure_exchanges,
    "routines": measure_routines,
    "growth": measure_growth,
}
