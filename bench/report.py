#!/usr/bin/env python3
"""Turns the JSON output of the benchmark programs into docs/PERFORMANCE.md.

Every figure is a ratio of a library path to the raw OS calls measured in the
same run. Where one benchmark measures both side by side (streams, selector,
resolution) the ratio is taken within each repetition; for the descriptor
sets, repetition k of the library benchmark is paired with repetition k of
the raw one. The table gives the median of those ratios with their minimum
and maximum.

Stream rows compare throughput (library / raw: 1.00 is parity, higher is
better). All other rows compare time per operation (library / raw: 1.00 is
parity, lower is better), taken from CPU time so that other work on a shared
machine disturbs the ratio less.
"""

import argparse
import glob
import json
import os
import re
import statistics
import sys

# Name suffixes that Google Benchmark appends for per-benchmark settings.
_SETTING_PARTS = re.compile(r"^(iterations|min_time|repeats|threads|real_time|manual_time|process_time)(:.*)?$")


def normalise(run_name):
    """'stream/tcp4/raw/4096/iterations:1/manual_time' -> 'stream/tcp4/raw/4096'."""
    return "/".join(part for part in run_name.split("/") if not _SETTING_PARTS.match(part))


class Runs:
    """Per-repetition measurements by normalised benchmark name."""

    def __init__(self):
        self.values = {}    # name -> {repetition index: entry}
        self.errors = {}    # name -> message
        self.context = None

    def add_file(self, path):
        with open(path) as handle:
            self.add_document(json.load(handle))

    def add_document(self, document):
        if self.context is None:
            self.context = document.get("context", {})
        for entry in document.get("benchmarks", []):
            if entry.get("run_type", "iteration") != "iteration":
                continue
            name = normalise(entry.get("run_name", entry["name"]))
            if entry.get("error_occurred"):
                self.errors[name] = entry.get("error_message", "failed")
                continue
            self.values.setdefault(name, {})[entry.get("repetition_index", 0)] = entry

    def series(self, name, field):
        reps = self.values.get(name, {})
        return [metric(reps[k], field) for k in sorted(reps) if field in ("throughput", "time") or field in reps[k]]


def metric(entry, field):
    """A value of one repetition: 'throughput' in bytes/s, 'time' in ns per
    operation (CPU time divided by the operations per iteration)."""
    if field == "throughput":
        return float(entry["bytes_per_second"])
    if field == "time":
        scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[entry.get("time_unit", "ns")]
        # A benchmark that times itself (manual time) leaves untimed work in
        # its CPU time: take its own clock instead.
        manual = "manual_time" in entry.get("name", "")
        per_iteration = float(entry["real_time" if manual else "cpu_time"]) * scale
        items = entry.get("items_per_second")
        if items:
            # items_per_second is measured against the reported time of the
            # benchmark; derive operations per iteration from it so that the
            # CPU time can be divided by the same count.
            reported = float(entry["real_time"]) * scale
            ops = items * reported * 1e-9
            if ops > 0:
                return per_iteration / ops
        return per_iteration
    if field in entry:
        return float(entry[field])
    raise KeyError(field)


def ratio_stats(lib, raw):
    """Median, minimum and maximum of the paired ratios lib[k] / raw[k]."""
    count = min(len(lib), len(raw))
    if count == 0:
        return None
    ratios = [lib[k] / raw[k] for k in range(count) if raw[k] > 0]
    if not ratios:
        return None
    return statistics.median(ratios), min(ratios), max(ratios), len(ratios)


class Row:
    """One line of a table: the paired ratio of `lib` to `raw`, each given as
    (benchmark name, field). `second` is an optional second ratio shown as
    its median: (column title, lib field, raw field) on the same benchmarks.
    `extra` columns show medians: (column title, (name, field), formatter)."""

    def __init__(self, section, label, lib, raw, target=None, higher_is_better=True, extra=None, second=None):
        self.section = section
        self.label = label
        self.lib = lib
        self.raw = raw
        self.target = target
        self.higher_is_better = higher_is_better
        self.extra = extra or []
        self.second = second


def _gbps(value):
    return "%.2f GB/s" % (value / 1e9)


def _time(value):
    if value >= 1e6:
        return "%.2f ms" % (value / 1e6)
    if value >= 1e3:
        return "%.2f us" % (value / 1e3)
    return "%.1f ns" % value


def _count(value):
    return "%g" % round(value, 2)


STREAM_CHUNKS = [(4096, "4 KiB"), (65536, "64 KiB"), (1048576, "1 MiB")]
STREAM_PATHS = [("flat", "ZYNET_send / ZYNET_recv"),
                ("object", "CZySocket::Send / Recv"),
                ("timelimit", "SendWithTimeOut / RecvWithTimeout (60 s)")]


def stream_target(path, chunk):
    if path == "timelimit":
        return 0.85 if chunk < 65536 else 0.95
    return 0.97 if chunk >= 65536 else None


def rows():
    result = []
    section = "Stream throughput, 2 GiB per path and measurement (library / raw throughput)"
    for transport, title in (("tcp4", "TCP over 127.0.0.1"), ("unix", "Unix socketpair")):
        for chunk, chunk_text in STREAM_CHUNKS:
            name = "stream/%s/%d" % (transport, chunk)
            for path, path_text in STREAM_PATHS:
                result.append(Row(section, "%s, %s chunks: %s" % (title, chunk_text, path_text),
                                  (name, path + "_bytes_per_second"), (name, "raw_bytes_per_second"),
                                  stream_target(path, chunk), True,
                                  [("raw", (name, "raw_bytes_per_second"), _gbps)],
                                  ("ratio per CPU second", path + "_cpu_bytes_per_second",
                                   "raw_cpu_bytes_per_second")))
    section = "Selector: Select + GetReadSelected (library / raw time)"
    # With 1% ready the selector waits on its epoll set: within 2.0 of a raw
    # epoll_wait() (and never worse than poll()); with every socket ready it
    # makes one poll(), within 1.5 of the raw call.
    for readiness, text, poll_target, epoll_target in (("ready1pct", "1% ready", 1.3, 2.0),
                                                      ("readyall", "all ready", 1.5, None)):
        for n in (1024, 4096, 8192):
            name = "selector/%s/%d" % (readiness, n)
            for raw, raw_text, row_target in (("poll", "poll()", poll_target), ("epoll", "epoll_wait()", epoll_target)):
                result.append(Row(section, "%d sockets, %s: vs %s" % (n, text, raw_text),
                                  (name, "lib_ns"), (name, raw + "_ns"), row_target, False,
                                  [("raw", (name, raw + "_ns"), _time),
                                   ("allocs/call", (name, "lib_allocs"), _count)]))
    section = "Resolution (library / raw time)"
    for case, text in (("name", 'CZyIPAddr::GetByName("localhost") vs getaddrinfo'),
                       ("numeric", 'CZyIPAddr::SetAddressString("127.0.0.1") vs getaddrinfo(AI_NUMERICHOST)')):
        name = "resolve/" + case
        result.append(Row(section, text, (name, "lib_ns"), (name, "raw_ns"), 1.1, False,
                          [("raw", (name, "raw_ns"), _time)]))
    section = "Descriptor sets, per operation (library / OS bit-mask set time)"
    for op, text, raw_op in (("set", "rkfdset_set (filling an empty set)", "set"),
                             ("isset", "rkfdset_isset (each member once)", "isset"),
                             ("clr", "rkfdset_clr (each member, oldest first)", "clr"),
                             ("copy", "ZyFdset copy construction", "copy"),
                             ("assign", "ZyFdset copy assignment", "copy")):
        for n in (1024, 8192):
            lib = "fdset/%s/lib/%d" % (op, n)
            raw = "fdset/%s/raw/%d" % (raw_op, n)
            result.append(Row(section, "%s, %d entries" % (text, n), (lib, "time"), (raw, "time"), None, False,
                              [("raw", (raw, "time"), _time), ("allocs/iter", (lib, "allocs"), _count)]))
    return result


def verdict(row, median):
    """Compares the median as the table shows it (three decimals)."""
    if row.target is None:
        return ""
    median = round(median, 3)
    if row.higher_is_better:
        return ("met (>= %.2f)" if median >= row.target else "**missed** (>= %.2f)") % row.target
    return ("met (<= %.2f)" if median <= row.target else "**missed** (<= %.2f)") % row.target


def evaluate(runs, all_rows):
    """Returns (markdown lines of the tables, list of missed-target labels,
    list of rows that could not be computed)."""
    lines = []
    missed = []
    absent = []
    section = None
    for row in all_rows:
        if row.section != section:
            section = row.section
            titles = ([row.second[0]] if row.second else []) + [title for title, _, _ in row.extra]
            lines += ["", "### " + section, "",
                      "| case | ratio (median) | min | max | " + " | ".join(titles + ["target"]) + " |",
                      "|---|---:|---:|---:|" + "---:|" * len(titles) + "---|"]
        failure = runs.errors.get(row.lib[0]) or runs.errors.get(row.raw[0])
        stats = None if failure else ratio_stats(runs.series(*row.lib), runs.series(*row.raw))
        extras = []
        if row.second:
            second = None if failure else ratio_stats(runs.series(row.lib[0], row.second[1]),
                                                      runs.series(row.raw[0], row.second[2]))
            extras.append("%.3f" % second[0] if second else "-")
        for _, (name, field), formatter in row.extra:
            values = runs.series(name, field)
            extras.append(formatter(statistics.median(values)) if values else "-")
        if stats is None:
            why = ("failed: " + failure) if failure else "not measured"
            absent.append("%s: %s" % (row.label, why))
            lines.append("| %s | %s | | | %s |" % (row.label, why, " | ".join(extras + [""])))
            if row.target is not None:
                missed.append(row.label + " (" + why + ")")
            continue
        median, low, high, _ = stats
        text = verdict(row, median)
        if text.startswith("**missed**"):
            missed.append("%s: %.3f" % (row.label, median))
        lines.append("| %s | %.3f | %.2f | %.2f | %s |" % (row.label, median, low, high,
                                                          " | ".join(extras + [text])))
    return lines, missed, absent


def render(runs, machine, command, repetitions, notes, elapsed=None):
    table, missed, absent = evaluate(runs, rows())
    out = ["# Performance", "",
           "What the socket layer costs compared with calling the operating system directly.",
           "Every figure is a ratio measured in one run of the command below: the library",
           "path and the raw OS calls run on the same machine, on the same kind of sockets,",
           "in randomly interleaved order. Regenerate this file with:", "",
           "```sh", command, "```", "",
           "## Machine", ""]
    for key, value in machine:
        out.append("- %s: %s" % (key, value))
    if elapsed is not None:
        out.append("- duration of the run: %d s" % elapsed)
    out += ["", "## Method", "",
            "- Google Benchmark, %d repetitions of every benchmark, run in random order." % repetitions,
            "  Each ratio is computed within one repetition, where the library path and its raw",
            "  counterpart ran side by side; the table gives the median over the repetitions with",
            "  the minimum and maximum.",
            "- Stream rows: throughput ratio (library / raw, higher is better). In each repetition",
            "  the four paths (raw, flat, object, time-limited) take turns on one fresh connection",
            "  in slices of 32 MiB, rotating their order, until each has moved 2 GiB from a sender",
            "  thread to the receiving benchmark thread; both ends of a slice use the same path, and",
            "  a slice's clock runs from the sender's release until the receiver holds its last byte.",
            "  The raw column is the raw path's median throughput. \"Ratio per CPU second\" compares",
            "  bytes moved per second of CPU used by both threads: the throughput each path would",
            "  reach with the processors to itself, the steadier figure when other work shares the",
            "  machine (see the load average above).",
            "- Selector and resolution rows: time ratio (library / raw, lower is better). The library",
            "  and the raw calls run in alternating blocks of a few milliseconds within each",
            "  repetition; the time is the benchmark thread's CPU time (system time included). The",
            "  raw column is the raw call's median time; allocs/call counts the library's heap",
            "  allocations per call.",
            "- Descriptor-set rows: time ratio per operation of separate benchmarks (the gaps are",
            "  orders of magnitude, far above any noise), from CPU time; allocs/iter counts heap",
            "  allocations per set filled, tested, cleared or copied.",
            "", "## Results"]
    out += table
    out += ["", "## Targets", ""]
    if missed:
        out.append("Missed in this run:")
        out.append("")
        out += ["- " + label for label in missed]
    else:
        out.append("Every target was met in this run.")
    if absent:
        out += ["", "Not measured in this run:", ""]
        out += ["- " + label for label in absent]
    if notes:
        out += ["", notes.rstrip()]
    return "\n".join(out) + "\n", missed


def machine_info(context, command_output=None):
    """Describes the machine from /proc and uname."""
    info = []
    info.append(("processors (nproc)", str(os.cpu_count() or context.get("num_cpus", "?"))))
    model = "unknown"
    try:
        with open("/proc/cpuinfo") as handle:
            for line in handle:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    info.append(("CPU", model))
    info.append(("kernel", os.uname().release))
    if context:
        info.append(("date", context.get("date", "?")))
        load = context.get("load_avg")
        if load:
            info.append(("load average at start", " ".join("%.2f" % value for value in load)))
    return info


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--results", required=True, help="directory of <program>.json files")
    parser.add_argument("--output", required=True)
    parser.add_argument("--command", required=True, help="the command that reproduces the run")
    parser.add_argument("--repetitions", type=int, required=True)
    parser.add_argument("--notes", help="markdown file appended after the targets")
    parser.add_argument("--elapsed", type=int, help="seconds the run took")
    parser.add_argument("--extra", action="append", default=[], help="key=value machine facts")
    args = parser.parse_args(argv)

    runs = Runs()
    files = sorted(glob.glob(os.path.join(args.results, "*.json")))
    if not files:
        print("report: no results in " + args.results, file=sys.stderr)
        return 1
    for path in files:
        try:
            runs.add_file(path)
        except (OSError, ValueError) as error:
            print("report: skipping %s: %s" % (path, error), file=sys.stderr)
    machine = machine_info(runs.context)
    for item in args.extra:
        key, _, value = item.partition("=")
        machine.append((key, value))
    notes = None
    if args.notes and os.path.exists(args.notes):
        with open(args.notes) as handle:
            notes = handle.read()
    text, missed = render(runs, machine, args.command, args.repetitions, notes, args.elapsed)
    with open(args.output, "w") as handle:
        handle.write(text)
    print("report: wrote %s (%d targets missed)" % (args.output, len(missed)))
    for label in missed:
        print("  missed: " + label)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
