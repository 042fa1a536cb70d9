#!/usr/bin/env python3
"""Checks of the report's arithmetic and of what it says about failures."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import report  # noqa: E402


def entry(name, rep, real, cpu=None, unit="ns", **fields):
    value = {"name": name, "run_name": name, "run_type": "iteration", "repetition_index": rep,
             "real_time": real, "cpu_time": real if cpu is None else cpu, "time_unit": unit}
    value.update(fields)
    return value


def stream_document(raw_bps, lib_bps, path="flat", chunk=65536):
    name = "stream/tcp4/%d/iterations:1/manual_time" % chunk
    benchmarks = []
    for rep, (raw, lib) in enumerate(zip(raw_bps, lib_bps)):
        # CPU efficiency: the raw path moves twice its throughput per CPU
        # second, the library path 1.5 times its own.
        fields = {"raw_bytes_per_second": raw, path + "_bytes_per_second": lib,
                  "raw_cpu_bytes_per_second": 2 * raw, path + "_cpu_bytes_per_second": 1.5 * lib}
        benchmarks.append(entry(name, rep, 1.0, **fields))
    # Aggregates must not be mistaken for repetitions.
    benchmarks.append(dict(entry(name + "_median", 0, 1.0, raw_bytes_per_second=1.0),
                           run_type="aggregate", run_name=name))
    return {"context": {"date": "2026-01-01T00:00:00+00:00", "load_avg": [0.5, 0.25, 0.1]},
            "benchmarks": benchmarks}


def row_line(text, label):
    return next(line for line in text.splitlines() if line.startswith("| " + label + " |"))


class ReportTest(unittest.TestCase):
    def test_names_lose_benchmark_settings_only(self):
        self.assertEqual(report.normalise("stream/tcp4/raw/4096/iterations:1/manual_time"), "stream/tcp4/raw/4096")
        self.assertEqual(report.normalise("selector/readyall/lib/8192/min_time:0.300"), "selector/readyall/lib/8192")
        self.assertEqual(report.normalise("resolve/name/lib"), "resolve/name/lib")

    def test_paired_ratios_give_median_min_and_max(self):
        median, low, high, count = report.ratio_stats([9.0, 10.0, 30.0, 8.0, 10.0], [10.0, 10.0, 10.0, 10.0, 5.0])
        self.assertEqual(count, 5)
        self.assertAlmostEqual(median, 1.0)
        self.assertAlmostEqual(low, 0.8)
        self.assertAlmostEqual(high, 3.0)
        # Unequal series are paired up to the shorter one.
        self.assertEqual(report.ratio_stats([2.0, 4.0, 6.0], [1.0, 2.0])[3], 2)
        self.assertIsNone(report.ratio_stats([], [1.0]))

    def test_time_metric_is_per_operation_and_honours_manual_time(self):
        # 2048 ops per iteration: items_per_second * real time (s) = 2048.
        fill = entry("fdset/set/lib/1024", 0, real=2048.0, cpu=1024.0, unit="ns", items_per_second=1e9)
        self.assertAlmostEqual(report.metric(fill, "time"), 0.5)
        manual = entry("fdset/clr/lib/1024/manual_time", 0, real=4.0, cpu=40.0, unit="us",
                       items_per_second=1024 / 4e-6)
        self.assertAlmostEqual(report.metric(manual, "time"), 4000.0 / 1024)
        plain = entry("resolve/name/raw", 0, real=3.0, cpu=2.0, unit="us")
        self.assertAlmostEqual(report.metric(plain, "time"), 2000.0)

    def test_stream_row_ratio_and_target(self):
        runs = report.Runs()
        runs.add_document(stream_document([10e9, 10e9, 10e9, 10e9, 10e9], [9.9e9, 9.8e9, 9.9e9, 10e9, 9.0e9]))
        self.assertEqual(len(runs.series("stream/tcp4/65536", "raw_bytes_per_second")), 5)
        text, missed = report.render(runs, [("CPU", "test")], "bash scripts/bench.sh", 5, None)
        line = row_line(text, "TCP over 127.0.0.1, 64 KiB chunks: ZYNET_send / ZYNET_recv")
        self.assertIn("| 0.990 | 0.90 | 1.00 | 0.743 | 10.00 GB/s | met (>= 0.97) |", line)
        self.assertNotIn("64 KiB chunks: ZYNET_send / ZYNET_recv", "\n".join(m for m in missed if "TCP" in m))
        self.assertIn("bash scripts/bench.sh", text)
        self.assertIn("- CPU: test", text)

    def test_missed_and_failed_rows_are_reported(self):
        runs = report.Runs()
        runs.add_document(stream_document([10e9] * 5, [8e9] * 5, path="timelimit", chunk=4096))
        failing = entry("resolve/name/min_time:0.300", 0, 1.0, error_occurred=True,
                        error_message="lib: GetByName: 11001")
        runs.add_document({"benchmarks": [failing]})
        text, missed = report.render(runs, [], "cmd", 5, "## Notes\n\nwhy")
        self.assertIn("0.800", row_line(text, "TCP over 127.0.0.1, 4 KiB chunks: SendWithTimeOut / RecvWithTimeout (60 s)"))
        joined = "\n".join(missed)
        self.assertIn("4 KiB chunks: SendWithTimeOut / RecvWithTimeout (60 s): 0.800", joined)
        self.assertIn("failed: lib: GetByName: 11001", joined)
        self.assertIn("not measured", joined)  # rows without data count as missed targets
        self.assertTrue(text.rstrip().endswith("why"))

    def test_time_rows_compare_lower_is_better(self):
        runs = report.Runs()
        docs = []
        for rep in range(5):
            docs.append(entry("selector/readyall/8192/min_time:0.300", rep, 1.0, unit="ms",
                              poll_ns=100e3, epoll_ns=50e3, lib_ns=140e3, lib_allocs=8193.0))
            # 1% ready: the ratio varies by repetition; the median decides.
            docs.append(entry("selector/ready1pct/8192/min_time:0.300", rep, 1.0, unit="ms",
                              poll_ns=100e3, epoll_ns=80e3, lib_ns=[120e3, 125e3, 140e3, 110e3, 200e3][rep],
                              lib_allocs=83.0))
            docs.append(entry("selector/ready1pct/4096/min_time:0.300", rep, 1.0, unit="ms",
                              poll_ns=50e3, epoll_ns=1e3, lib_ns=70e3, lib_allocs=42.0))
        runs.add_document({"benchmarks": docs})
        text, missed = report.render(runs, [], "cmd", 5, None)
        self.assertIn("| 1.400 | 1.40 | 1.40 | 100.00 us | 8193 | met (<= 1.50) |",
                      row_line(text, "8192 sockets, all ready: vs poll()"))
        self.assertIn("| 2.800 | 2.80 | 2.80 | 50.00 us | 8193 |  |",
                      row_line(text, "8192 sockets, all ready: vs epoll_wait()"))
        self.assertIn("| 1.250 | 1.10 | 2.00 | 100.00 us | 83 | met (<= 1.30) |",
                      row_line(text, "8192 sockets, 1% ready: vs poll()"))
        self.assertIn("| 1.562 | 1.38 | 2.50 | 80.00 us | 83 | met (<= 2.00) |",
                      row_line(text, "8192 sockets, 1% ready: vs epoll_wait()"))
        self.assertFalse([m for m in missed if m.startswith("8192 sockets")])
        self.assertIn("**missed** (<= 1.30)", row_line(text, "4096 sockets, 1% ready: vs poll()"))
        self.assertIn("4096 sockets, 1% ready: vs poll(): 1.400", missed)
        self.assertIn("4096 sockets, 1% ready: vs epoll_wait(): 70.000", missed)

    def test_target_is_judged_on_the_value_shown(self):
        row = report.Row("s", "r", ("a", "x"), ("b", "x"), target=0.97, higher_is_better=True)
        self.assertTrue(report.verdict(row, 0.96951).startswith("met"))    # shown as 0.970
        self.assertTrue(report.verdict(row, 0.9694).startswith("**missed**"))
        row = report.Row("s", "r", ("a", "x"), ("b", "x"), target=1.3, higher_is_better=False)
        self.assertTrue(report.verdict(row, 1.3004).startswith("met"))     # shown as 1.300
        self.assertTrue(report.verdict(row, 1.3006).startswith("**missed**"))


if __name__ == "__main__":
    unittest.main()
