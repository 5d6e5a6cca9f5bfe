"""Compares the instructions and system calls of a fixed set of runs with bench/counts.json.

Counts do not depend on the machine's load, nor, as programs.PINNED fixes the C library's choices,
on its processor. They do depend on the compiler and the C library, so they are compared only with
those with which they were recorded."""

import json
import tempfile

from machine import versions
from programs import (PINNED, QUESTION, instructions, marked_instructions, removal_calls, service,
                      system_calls)

FILE = "bench/counts.json"
TOLERANCE = 0.05
SIZE = 4096  # of the routines' input; one of the sizes of bench/own-main.cpp
TREE_SIZE = 200  # files

REPLY = b"HTTP/1.0 200 OK\r\n\r\nVersion: 5.2\nURL: http://www.quintral.example/\nMessage: New.\n"


def offline_counts(tool):
    """The instructions of whole runs without the network."""
    with tempfile.NamedTemporaryFile() as reply:
        reply.write(REPLY)
        reply.flush()
        runs = {"-show-request": ["-show-request", *QUESTION], "-parse": ["-parse", reply.name]}
        return {f"instructions/quintral {name}":
                instructions([tool, *words], environment=PINNED)[None]
                for name, words in runs.items()}


def all_counts(build):
    tool = f"{build}/tool/quintral"
    counts = offline_counts(tool)
    marked = marked_instructions([f"{build}/bench/quintral_own_count", f"/{SIZE}"], PINNED)
    counts.update({f"instructions/{name}": count for name, count in marked.items()})
    with service(build) as port:
        check = [tool, "-service", f"127.0.0.1:{port}", *QUESTION]
        counts["instructions/quintral -service"] = instructions(check, environment=PINNED)[None]
        counts["system calls/quintral -service"] = sum(system_calls(check, PINNED).values())
    removal = [f"{build}/bench/quintral_remove_tree_bench", "TREE", "ours"]
    counts["system calls/remove_tree"] = sum(removal_calls(removal, TREE_SIZE).values())
    return dict(sorted(counts.items()))


def record(build):
    with open(FILE, "w", encoding="utf-8") as stream:
        json.dump({"versions": versions(build), "counts": all_counts(build)}, stream, indent=2)
        stream.write("\n")
    return True


def differences(recorded, counted):
    """Yields (line, fails) for each count that is not within the tolerance."""
    for name in sorted(recorded.keys() | counted.keys()):
        before, now = recorded.get(name), counted.get(name)
        if before is None or now is None:
            yield f"{name}: {'not recorded' if before is None else 'no longer counted'}", True
        elif now > before * (1 + TOLERANCE):
            yield f"{name}: {now}, {now / before - 1:+.1%} from the recorded {before}", True
        elif now < before * (1 - TOLERANCE):
            yield f"{name}: {now}, {now / before - 1:+.1%}; bench/run --record-counts", False


def compare(build):
    """Prints what differs and a closing line. Returns whether nothing grew."""
    with open(FILE, encoding="utf-8") as stream:
        recorded = json.load(stream)
    here = versions(build)
    if here != recorded["versions"]:
        for name, version in recorded["versions"].items():
            if here[name] != version:
                print(f"counts: skipped, the {name} is {here[name]}, not {version}")
        return True
    counted = all_counts(build)
    found = list(differences(recorded["counts"], counted))
    for line, _ in found:
        print(line)
    failures = sum(fails for _, fails in found)
    print(f"counts: {len(counted)} compared, {failures} grew by more than {TOLERANCE:.0%}")
    return failures == 0
