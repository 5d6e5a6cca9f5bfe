#!/usr/bin/env python3
"""Prints the totals of the reports that scripts/coverage.sh makes, and judges the second.

Usage: scripts/coverage-totals.py MACOS_SUMMARY SUMMARY
"""
import json
import sys

LEAST_LINES = 99.5
LEAST_BRANCHES = 97.0


def totals(path):
    with open(path, encoding='utf-8') as file:
        report = json.load(file)
    share = {}
    for kind in ('line', 'branch'):
        count = report[f'{kind}_total']
        share[kind] = (100 * report[f'{kind}_covered'] / count if count else 0.0, count)
    return share


def line(name, share):
    return (f"{name}: {share['line'][0]:.2f} % of {share['line'][1]} lines, "
            f"{share['branch'][0]:.2f} % of {share['branch'][1]} branches")


def main(arguments):
    macos, total = (totals(path) for path in arguments)
    enough = total['line'][0] >= LEAST_LINES and total['branch'][0] >= LEAST_BRANCHES
    if not enough:
        print(f'coverage: at least {LEAST_LINES} % of the lines and {LEAST_BRANCHES} % of the '
              'branches must run')
    print(line('macOS sources', macos))
    print(line('coverage', total))
    return 0 if enough else 1


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
