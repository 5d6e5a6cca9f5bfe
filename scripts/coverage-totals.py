#!/usr/bin/env python3
"""Prints the totals of the reports that scripts/coverage.sh makes, and judges the second.

Usage: scripts/coverage-totals.py MACOS_REPORT REPORT

Above the totals it lists the branches that no test took. Branches that only an exception takes do
not count. They are left out here and not by gcovr: gcov marks them as such only where the call has
run, so a source that is compiled several times must be put together first.
"""
import json
import sys

LEAST_LINES = 99.5
LEAST_BRANCHES = 97.0


def read_lines(path):
    """(file, line) of each line of code."""
    with open(path, encoding='utf-8') as file:
        report = json.load(file)
    return [(file['file'], line) for file in report['files'] for line in file['lines']
            if not line['gcovr/noncode']]


def branches_of(line):
    """For each branch, whether it was taken."""
    return [branch['count'] > 0 for branch in line['branches'] if not branch['throw']]


def totals(lines):
    run = [line['count'] > 0 for _, line in lines]
    taken = [branch for _, line in lines for branch in branches_of(line)]
    return {'line': (100 * sum(run) / max(len(run), 1), len(run)),
            'branch': (100 * sum(taken) / max(len(taken), 1), len(taken))}


def text_of(name, share):
    return (f"{name}: {share['line'][0]:.2f} % of {share['line'][1]} lines, "
            f"{share['branch'][0]:.2f} % of {share['branch'][1]} branches")


def main(arguments):
    macos, lines = (read_lines(path) for path in arguments)
    for name, line in lines:
        branches = branches_of(line)
        if not all(branches):
            print(f"{name}:{line['line_number']}: {branches.count(False)} of {len(branches)} "
                  'branches not taken')
    total = totals(lines)
    enough = total['line'][0] >= LEAST_LINES and total['branch'][0] >= LEAST_BRANCHES
    if not enough:
        print(f'coverage: at least {LEAST_LINES} % of the lines and {LEAST_BRANCHES} % of the '
              'branches must run')
    print(text_of('macOS sources', totals(macos)))
    print(text_of('coverage', total))
    return 0 if enough else 1


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
