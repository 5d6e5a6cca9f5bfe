"""Tests of the arithmetic and the reading of bench/figures.py, bench/limits.py and
bench/counts.py."""

import contextlib
import io
import json
import os
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../../bench"))

import counts
import figures
import limits
import machine
import report

CALLGRIND = """# callgrind format
version: 1
desc: Trigger: Client Request: find/prose/ours/64
positions: line
events: Ir
summary: 4711
totals: 4712
"""

STRACE = """% time     seconds  usecs/call     calls    errors syscall
------ ----------- ----------- --------- --------- ----------------
 62.50    0.000020           1        12         3 openat
 37.50    0.000012           0       140           pselect6
------ ----------- ----------- --------- --------- ----------------
100.00    0.000032           0       152         3 total
"""


class Figures(unittest.TestCase):

    def test_quartiles_are_measured_values(self):
        self.assertEqual(figures.quartiles([5, 1, 4, 2, 3]), {"median": 3, "low": 2, "high": 4})
        self.assertEqual(figures.quartiles([7]), {"median": 7, "low": 7, "high": 7})

    def test_exponent_is_the_power_of_the_size(self):
        for power in (0, 0.5, 1, 2):
            points = [(size, 3 * size ** power) for size in (10, 20, 40, 1000)]
            self.assertAlmostEqual(figures.exponent(points), power)

    def test_exponent_evens_out_what_is_off(self):
        self.assertAlmostEqual(figures.exponent([(1, 2), (2, 2), (4, 8), (8, 8)]), 0.8)

    def test_case_names_are_read_from_the_right(self):
        case = figures.read_case("find/prose/ours/64")
        self.assertEqual(case, ("find/prose", "ours", 64))
        self.assertEqual(figures.case_name(case), "find/prose/ours/64")

    def test_pairs_leave_out_the_reference(self):
        names = ["f/ours/8", "f/fmt/8", "f/reference/8", "f/fmt/64"]
        self.assertEqual(list(figures.pairs(names)), [(("f", "ours", 8), ("f", "fmt", 8))])
        self.assertEqual(figures.unpaired(names), ["f/fmt/64"])


class Reading(unittest.TestCase):

    def test_callgrind(self):
        self.assertEqual(figures.read_callgrind(CALLGRIND), ("find/prose/ours/64", 4712))
        self.assertEqual(figures.read_callgrind("desc: Trigger: Program termination\ntotals: 5\n"),
                         (None, 5))

    def test_strace_with_and_without_errors(self):
        self.assertEqual(figures.read_strace(STRACE), {"openat": 12, "pselect6": 140})

    def test_benchmark_in_nanoseconds_without_its_own_statistics(self):
        rows = [{"run_type": "iteration", "run_name": "f/ours/8", "cpu_time": time,
                 "time_unit": "us"} for time in (2, 1, 3)]
        rows.append({"run_type": "aggregate", "run_name": "f/ours/8", "cpu_time": 99,
                     "time_unit": "us"})
        self.assertEqual(figures.read_benchmark(json.dumps({"benchmarks": rows})),
                         {"f/ours/8": {"median": 2000, "low": 1000, "high": 3000}})

    def test_flags_without_paths(self):
        command = "c++ -I/a/b -O3 -DNDEBUG -DNAME=1 -ffile-prefix-map=/a=b -std=c++17 -o x -c y.cpp"
        self.assertEqual(machine.flags(command), "-O3 -DNDEBUG -std=c++17")

    def test_a_kernel_is_named_without_its_patches_and_local_version(self):
        self.assertEqual(machine.kernel("6.18.44-fc-v657").split()[1], "6.18")


class Limits(unittest.TestCase):

    FIGURES = {
        "check": {name: {"cpu_us": {"median": cpu}, "peak_kib": {"median": peak}}
                  for name, cpu, peak in (("ours", 104, 90), ("bare", 100, 100),
                                          ("curl", 640, 650))},
        "calls": {"check": {}, "remove_tree": {"ours": {"a": 3}, "rm -rf": {"a": 2, "b": 1}}},
        "exchanges": {f"body/{size}": {"ours": {"cpu_us_median": size},
                                       "reference": {"cpu_us_median": size}}
                      for size in (100, 200, 400)},
        "routines": {"instructions": {"f/ours/8": 90, "f/fmt/8": 100, "f/reference/8": 1}},
        "growth": {"search": [[1, 5], [2, 20], [4, 80]], "late": [[1, 1], [100, 10], [200, 40]]},
    }

    def verdicts(self):
        return {verdict.name: verdict for verdict in limits.verdicts(self.FIGURES)}

    def judge(self, exceptions, complete=True):
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            passed = limits.report(self.verdicts().values(), exceptions, complete)
        return passed, output.getvalue()

    def test_every_figure_has_a_verdict(self):
        names = ["check/cpu_us/bare", "check/cpu_us/curl", "check/peak_kib/bare",
                 "check/peak_kib/curl", "calls/remove_tree/rm -rf", "exchange/body/100",
                 "exchange/body/200", "exchange/body/400", "f/fmt/8", "growth/search",
                 "late-growth/search", "growth/late", "late-growth/late",
                 "growth/exchange/body", "late-growth/exchange/body"]
        self.assertEqual(list(self.verdicts()), names)

    def test_values_are_ours_beside_the_peers(self):
        found = self.verdicts()
        self.assertAlmostEqual(found["check/cpu_us/bare"].value, 1.04)
        self.assertAlmostEqual(found["calls/remove_tree/rm -rf"].value, 1)
        self.assertAlmostEqual(found["f/fmt/8"].value, 0.9)
        self.assertAlmostEqual(found["growth/exchange/body"].value, 1)

    def test_what_is_above_its_limit_is_printed(self):
        self.assertEqual(self.judge([]),
                         (False, "growth/search: 2.000, at most 1.1\n"
                                 "late-growth/search: 2.000, at most 1.25\n"
                                 "late-growth/late: 2.000, at most 1.25\n"
                                 "12 passed, 3 failed\n"))

    def test_an_exception_raises_the_limit(self):
        self.assertEqual(self.judge([{"name": "*growth/*[he]", "limit": 2.01}]),
                         (True, "15 passed, 0 failed\n"))

    def test_the_limit_of_an_exception_holds(self):
        self.assertEqual(self.judge([{"name": "growth/search", "limit": 1.9},
                                     {"name": "late-growth/*", "limit": 2.1}]),
                         (False, "growth/search: 2.000, at most 1.9\n14 passed, 1 failed\n"))

    def test_an_exception_must_fit_something(self):
        stale = [{"name": "*growth/*", "limit": 3}, {"name": "gone", "limit": 3}]
        self.assertFalse(self.judge(stale)[0])
        self.assertTrue(self.judge(stale, complete=False)[0])


class Counts(unittest.TestCase):

    def differences(self, before, now):
        return [fails for _, fails in counts.differences(before, now)]

    def test_growth_above_the_tolerance_fails(self):
        self.assertEqual(self.differences({"a": 100}, {"a": 106}), [True])
        self.assertEqual(self.differences({"a": 100}, {"a": 105}), [])

    def test_what_shrinks_is_only_mentioned(self):
        self.assertEqual(self.differences({"a": 100}, {"a": 94}), [False])

    def test_both_must_count_the_same_runs(self):
        self.assertEqual(self.differences({"a": 1}, {"b": 1}), [True, True])


class Page(unittest.TestCase):

    def tables(self, names):
        time = {"median": 2, "low": 1.9, "high": 2.1}
        routines = {"instructions": {name: 10 for name in names},
                    "times": {name: time for name in names}}
        return list(report.routine_tables(report.ratios(routines)))

    def test_routines_of_the_same_sizes_share_a_table(self):
        names = [f"{routine}/{side}/{size}" for routine in ("f", "g", "h")
                 for side in ("ours", "fmt") for size in (8, 64)]
        self.assertEqual(len(self.tables(names)), 1)
        self.assertIn("| g | fmt | 1.00 / 1.00 | 1.00 / 1.00 | 10% |", self.tables(names)[0])

    def test_routines_of_other_sizes_share_the_last_table(self):
        found = self.tables(["f/ours/8", "f/fmt/8", "g/ours/5", "g/fmt/5"])
        self.assertEqual(len(found), 1)
        self.assertIn("| g | fmt | 5: 1.00 / 1.00 | 10% |", found[0])


if __name__ == "__main__":
    unittest.main()
