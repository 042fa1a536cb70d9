#!/usr/bin/python3
"""Download throughput of RkHTTPReq against the curl tool, same run, same server.

usage: bench_http.py BENCH_HTTP_PROGRAM REPORT_FILE [ROUNDS]

Starts the loopback servers of the HTTP tests (tests/support/http_servers.py)
and downloads nginx's 1 GiB file in rounds. Each round runs four downloads in
turn: RkHTTPReq into a discarding callback, `curl -o /dev/null`, RkHTTPReq
into a file, `curl -o FILE` (the same file path, removed between runs). The
order within a round alternates library-first and curl-first. Throughput is
bytes over the wall time of the whole process, so that both sides pay their
start-up. Writes the section between the http-bench markers of REPORT_FILE.
"""
import json
import os
import resource
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SERVERS = os.path.join(ROOT, "tests", "support", "http_servers.py")
START, END = "<!-- http-bench:start -->", "<!-- http-bench:end -->"


def timed(command):
    """Wall seconds, CPU seconds (user + system) of the child, and its stdout."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    out = subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE).stdout
    wall = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    return wall, cpu, out


def main():
    program, report = sys.argv[1], sys.argv[2]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    state = os.path.join(os.path.dirname(os.path.abspath(program)), "..", "http-bench-servers")
    subprocess.run(["/usr/bin/python3", SERVERS, "start", state], check=True)
    try:
        with open(os.path.join(state, "servers.json")) as f:
            info = json.load(f)
        url = "http://127.0.0.1:%d/big/1GiB.bin" % info["http"]
        size = info["bigSize"]
        load = open("/proc/loadavg").read().split()[:3]
        results = {"lib-discard": [], "curl-discard": [], "lib-file": [], "curl-file": []}
        per_cpu = {k: [] for k in results}
        growth = []
        peaks = []
        with tempfile.TemporaryDirectory(dir=os.path.dirname(os.path.abspath(program))) as tmp:
            target = os.path.join(tmp, "download.bin")
            runs = {
                "lib-discard": [program, url, "discard"],
                "curl-discard": ["curl", "-s", "-f", "-o", "/dev/null", url],
                "lib-file": [program, url, "file", target],
                "curl-file": ["curl", "-s", "-f", "-o", target, url],
            }
            # The first download after the server starts is slow whichever
            # side makes it (2.1 s for the library, 0.7 s for the curl tool,
            # against about 0.4 s later, with the same client CPU): the
            # server's first pass over the file. One download of each side,
            # unmeasured, goes first.
            for name in ("lib-discard", "curl-discard"):
                timed(runs[name])
            for r in range(rounds):
                order = ["lib-discard", "curl-discard", "lib-file", "curl-file"]
                if r % 2:
                    order = ["curl-discard", "lib-discard", "curl-file", "lib-file"]
                for name in order:
                    if os.path.exists(target):
                        os.remove(target)
                    seconds, cpu, out = timed(runs[name])
                    per_cpu[name].append(size / max(cpu, 1e-6) / (1 << 20))
                    if name.startswith("lib"):
                        line = json.loads(out)
                        growth.append((line["peakKiB"] - line["peakKiBBefore"]) / 1024.0)
                        peaks.append(line["peakKiB"] / 1024.0)
                    if name.endswith("file") and os.path.getsize(target) != size:
                        raise RuntimeError("%s wrote %d bytes" % (name, os.path.getsize(target)))
                    results[name].append(size / seconds / (1 << 20))
                    print("round %d %-13s %8.1f MiB/s  %8.1f MiB per CPU second" %
                          (r + 1, name, results[name][-1], per_cpu[name][-1]), flush=True)
        load_after = open("/proc/loadavg").read().split()[:3]
    finally:
        subprocess.run(["/usr/bin/python3", SERVERS, "stop", state])

    med = {k: statistics.median(v) for k, v in results.items()}
    # Ratios within each round, then their median.
    discard = statistics.median(a / b for a, b in zip(results["lib-discard"], results["curl-discard"]))
    tofile = statistics.median(a / b for a, b in zip(results["lib-file"], results["curl-file"]))
    cpu_discard = statistics.median(a / b for a, b in zip(per_cpu["lib-discard"], per_cpu["curl-discard"]))
    cpu_file = statistics.median(a / b for a, b in zip(per_cpu["lib-file"], per_cpu["curl-file"]))
    curl_version = subprocess.run(["curl", "--version"], stdout=subprocess.PIPE, text=True).stdout.splitlines()[0]
    lines = [
        START,
        "## HTTP download (RkHTTPReq against the curl tool)",
        "",
        "A 1 GiB file from nginx on loopback, through `RkHTTPReq` and through the curl",
        "command-line tool (%s), which uses the same libcurl. Regenerate with" % curl_version,
        "`bash scripts/bench.sh` (or `python3 scripts/bench_http.py build/bench/bin/bench_http docs/PERFORMANCE.md`).",
        "",
        "- One unmeasured download of each side first (the server's first pass over the file is slow),",
        "  then %d rounds, each running the four downloads in turn, alternating which side goes first;" % rounds,
        "  throughput is bytes over the whole process's wall time (both sides pay their start-up).",
        "- The machine is shared (2 processors, up to 8 developers building and testing at once):",
        "  load average %s at the start, %s at the end. Medians are given; single runs vary a lot." %
        (" ".join(load), " ".join(load_after)),
        "- Date: %s, commit %s." % (time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime()),
                                    subprocess.run(["git", "-C", ROOT, "rev-parse", "--short", "HEAD"],
                                                   stdout=subprocess.PIPE, text=True).stdout.strip()),
        "",
        "| path | RkHTTPReq MiB/s | curl tool MiB/s | throughput ratio | ratio per CPU second | target |",
        "|---|---|---|---|---|---|",
        "| into a discarding callback / `-o /dev/null` | %.0f | %.0f | %.3f | %.3f | >= 0.95 |" %
        (med["lib-discard"], med["curl-discard"], discard, cpu_discard),
        "| into a file / `-o FILE` | %.0f | %.0f | %.3f | %.3f | >= 0.95 |" %
        (med["lib-file"], med["curl-file"], tofile, cpu_file),
        "",
        "Ratios are medians of the per-round ratios (library / curl tool, higher is better). \"Ratio per",
        "CPU second\" compares bytes per second of the downloading process's own CPU time (user + system),",
        "the steadier figure while other work shares the processors.",
        "",
        "Peak resident memory of the library's download process: %.1f MiB (median); it grew by %.1f MiB" %
        (statistics.median(peaks), max(growth)),
        "at most from the start of the download to its end (1 GiB moved).",
        END,
    ]
    section = "\n".join(lines) + "\n"
    text = open(report).read() if os.path.exists(report) else ""
    if START in text and END in text:
        text = text[:text.index(START)] + section + text[text.index(END) + len(END) + 1:]
    else:
        text = text.rstrip("\n") + "\n\n" + section
    with open(report, "w") as f:
        f.write(text)
    print(section)
    return 0


if __name__ == "__main__":
    sys.exit(main())
