#!/usr/bin/python3
"""Transfers with the zynet tool against the tools users would otherwise pick.

usage: bench_transfer.py ZYNET REPORT_FILE [ROUNDS]

Starts nginx (with WebDAV PUT), vsftpd (anonymous download and upload) and
OpenSSH's sshd as their own instances on free loopback ports, with configs
and roots in a temporary directory on tmpfs, where every file read or
written also lies. Then, per row, it runs whole processes in paired rounds:
zynet and each peer tool in turn, zynet first in even rounds and last in odd
ones (A B, B A, ...). Throughput is bytes over the wall time of the whole
process (start-up included); the ratio zynet / peer is taken within each
round, and the report gives its median with the minimum and maximum. Peak
resident memory is each process's own maximum (GNU time's %M). Writes
the section between the transfer-bench markers of REPORT_FILE.

Environment:
  ZYNET_BENCH_SIZE_MB      size of the large file in MiB (default 1024)
  ZYNET_BENCH_SMALL_FILES  how many small files (default 500)
  ZYNET_BENCH_SMALL_KB     size of each small file in KiB (default 16)
  ZYNET_BENCH_ROWS         regular expression: only rows whose key matches
                           (http-get, http-put, ftp-get, ftp-put, sftp-get,
                           sftp-put, small-each, small-multi); others are
                           reported as not measured
  ZYNET_BENCH_TMPFS        directory on tmpfs for everything (default
                           /dev/shm; as root a tmpfs is mounted when it is
                           not one)
"""
import os
import pwd
import re
import resource
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "tests", "support"))
from fixture_servers import free_port, retrying, spawn, wait_port  # noqa: E402

START, END = "<!-- transfer-bench:start -->", "<!-- transfer-bench:end -->"
MIB = 1 << 20
MULTI_RUNS = 10      # runs of the all-URLs process per side and round
# Targets of the throughput ratio zynet / peer (the done-when of the work).
TARGETS = {"curl": 0.95, "wget": 0.95, "lftp": 0.95, "sftp": 0.9, "curl, all URLs": 0.9}

NGINX_CONF = """
worker_processes 1;
{user}
error_log {state}/nginx-error.log warn;
pid {state}/nginx.pid;
events {{ worker_connections 256; }}
http {{
    access_log off;
    default_type application/octet-stream;
    sendfile on;
    client_body_temp_path {root}/.nginx-body;
    # The upload body buffer keeps nginx's default (16 KiB), as servers run:
    # with 1 MiB pieces the PUT row measured a server tuned as few are.
    server {{
        listen 127.0.0.1:{port};
        server_name localhost;
        root {root};
        location /up/ {{
            dav_methods PUT;
            create_full_put_path on;
            client_max_body_size 0;
        }}
    }}
}}
"""

VSFTPD_CONF = """listen=YES
listen_ipv6=NO
listen_address=127.0.0.1
listen_port={port}
background=NO
anonymous_enable=YES
no_anon_password=YES
local_enable=NO
write_enable=YES
anon_upload_enable=YES
anon_mkdir_write_enable=YES
anon_other_write_enable=YES
anon_umask=022
anon_root={root}
secure_chroot_dir={empty}
pasv_enable=YES
pasv_address=127.0.0.1
pasv_min_port={pasv}
pasv_max_port={pasv_end}
seccomp_sandbox=NO
xferlog_enable=NO
dirmessage_enable=NO
use_sendfile=YES
"""

SSHD_CONF = """ListenAddress 127.0.0.1
Port {port}
HostKey {state}/host_key
PidFile {state}/sshd.pid
AuthorizedKeysFile {state}/authorized_keys
StrictModes no
UsePAM no
PasswordAuthentication no
KbdInteractiveAuthentication no
PermitRootLogin prohibit-password
Subsystem sftp internal-sftp
"""


def tmpfs_base():
    """A directory on tmpfs: ZYNET_BENCH_TMPFS or /dev/shm, or one mounted here."""
    base = os.environ.get("ZYNET_BENCH_TMPFS", "/dev/shm")
    mounts = [line.split() for line in open("/proc/mounts")]
    real = os.path.realpath(base)
    best = max((m for m in mounts if real == m[1] or real.startswith(m[1].rstrip("/") + "/")),
               key=lambda m: len(m[1]), default=None)
    if best and best[2] == "tmpfs":
        return base, None
    if os.geteuid() != 0:
        raise RuntimeError("%s is not on tmpfs and mounting one needs root" % base)
    point = tempfile.mkdtemp(prefix="zynet-bench-tmpfs-")
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", point], check=True)
    return point, point


def write_random(path, size):
    with open(path, "wb") as f:
        left = size
        while left:
            n = min(left, 16 * MIB)
            f.write(os.urandom(n))
            left -= n
    os.chmod(path, 0o644)


class Servers:
    def __init__(self, work):
        self.work = work
        self.state = os.path.join(work, "state")
        self.root = os.path.join(work, "root")       # served by nginx, vsftpd and sshd alike
        self.up = os.path.join(self.root, "up")      # written by uploads
        for d in (self.state, self.root, self.up, os.path.join(work, "local")):
            os.makedirs(d)
        os.chmod(self.up, 0o777)  # nginx's workers and vsftpd's anonymous user write here
        self.procs = []

    def start_nginx(self):
        def once():
            port = free_port()
            user = "user root;" if os.geteuid() == 0 else ""
            conf = os.path.join(self.state, "nginx.conf")
            with open(conf, "w") as f:
                f.write(NGINX_CONF.format(user=user, state=self.state, root=self.root, port=port))
            proc = spawn(["nginx", "-p", self.state, "-c", conf, "-g", "daemon off;"], self.state, "nginx")
            wait_port(port, proc, "nginx")
            return proc, port
        os.makedirs(os.path.join(self.root, ".nginx-body"), exist_ok=True)
        os.chmod(os.path.join(self.root, ".nginx-body"), 0o777)
        proc, self.http = retrying(once)
        self.procs.append(proc)

    def start_vsftpd(self):
        empty = os.path.join(self.state, "empty")
        os.makedirs(empty, exist_ok=True)

        def once():
            port, pasv = free_port(), free_port()
            conf = os.path.join(self.state, "vsftpd.conf")
            with open(conf, "w") as f:
                f.write(VSFTPD_CONF.format(port=port, root=self.root, empty=empty, pasv=pasv, pasv_end=pasv + 20))
            proc = spawn(["vsftpd", conf], self.state, "vsftpd")
            wait_port(port, proc, "vsftpd")
            return proc, port
        # Anonymous logins chroot into the root: root's own, not writable.
        os.chmod(self.root, 0o755)
        proc, self.ftp = retrying(once)
        self.procs.append(proc)

    def start_sshd(self):
        if os.geteuid() == 0:
            os.makedirs("/run/sshd", mode=0o755, exist_ok=True)
        self.key = os.path.join(self.state, "id_bench")
        for path in (os.path.join(self.state, "host_key"), self.key):
            subprocess.run(["ssh-keygen", "-q", "-t", "ecdsa", "-b", "256", "-m", "PEM", "-N", "", "-f", path],
                           check=True, stdout=subprocess.DEVNULL)
        shutil.copy(self.key + ".pub", os.path.join(self.state, "authorized_keys"))
        self.ssh_user = pwd.getpwuid(os.geteuid()).pw_name

        def once():
            port = free_port()
            conf = os.path.join(self.state, "sshd_config")
            with open(conf, "w") as f:
                f.write(SSHD_CONF.format(port=port, state=self.state))
            proc = spawn(["/usr/sbin/sshd", "-D", "-e", "-f", conf], self.state, "sshd")
            wait_port(port, proc, "sshd")
            return proc, port
        proc, self.sftp = retrying(once)
        self.procs.append(proc)

    def stop(self):
        for proc in self.procs:
            try:
                os.killpg(proc.pid, signal.SIGTERM)
            except OSError:
                pass
        for proc in self.procs:
            try:
                proc.wait(10)
            except subprocess.TimeoutExpired:
                os.killpg(proc.pid, signal.SIGKILL)
                proc.wait()


def cpu_of_children():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def failed(command, proc):
    return RuntimeError("%s exited with %d: %s" % (" ".join(command), proc.returncode,
                                                  proc.stderr.decode("utf-8", "replace").strip()))


def peak_rss(command):
    """Peak RSS in KiB of one run of COMMAND, through /usr/bin/time (a small
    program): a child's peak counts the memory of the process it was forked
    from, since exec keeps the maximum, so a fork of this interpreter would
    add its 30 MiB to every figure."""
    fd, measured = tempfile.mkstemp(prefix="zynet-bench-time-")
    os.close(fd)
    try:
        proc = subprocess.run(["/usr/bin/time", "-o", measured, "-f", "%M"] + command,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        if proc.returncode != 0:
            raise failed(command, proc)
        return int(open(measured).read().split()[-1])
    finally:
        os.remove(measured)


def run_all(commands):
    """(wall seconds, CPU seconds, peak RSS KiB) of COMMANDS run one after
    another as whole processes. A single large transfer runs under
    /usr/bin/time for its peak RSS (the wrapper's start-up is a millisecond
    against seconds); many small ones run directly and their peak RSS comes
    from one more run of the first, outside the clock."""
    peak = peak_rss(commands[0]) if len(commands) > 1 else 0
    cpu = cpu_of_children()
    start = time.monotonic()
    for command in commands:
        if len(commands) == 1:
            peak = peak_rss(command)
            continue
        proc = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        if proc.returncode != 0:
            raise failed(command, proc)
    return time.monotonic() - start, cpu_of_children() - cpu, peak


class Row:
    """One transfer: zynet and its peers, each a function that prepares and
    returns the commands of one run, and a check of what arrived."""

    def __init__(self, key, title, size, zynet, peers, check):
        self.key, self.title, self.size = key, title, size
        self.sides = [("zynet", zynet)] + peers
        self.check = check
        self.results = {name: [] for name, _ in self.sides}
        self.skipped = None

    def measure(self, rounds, log):
        for r in range(rounds):
            order = self.sides if r % 2 == 0 else list(reversed(self.sides))
            for name, prepare in order:
                commands = prepare()
                wall, cpu, peak = run_all(commands)
                self.check(name)
                self.results[name].append((self.size / wall / MIB, cpu, peak / 1024.0, wall / len(commands)))
                log("round %d %-11s %-15s %8.1f MiB/s  %6.2f s CPU  %7.1f ms a process  peak %.1f MiB" %
                    (r + 1, self.key, name, self.results[name][-1][0], cpu, 1000 * wall / len(commands),
                     peak / 1024.0))

    def lines(self):
        if self.skipped:
            return ["| %s | %s | - | - | not measured: %s | - | - | - |" % (self.title, peer_label(peer), self.skipped)
                    for peer, _ in self.sides[1:]]
        out = []
        mine = self.results["zynet"]
        for peer, _ in self.sides[1:]:
            theirs = self.results[peer]
            ratios = [a[0] / b[0] for a, b in zip(mine, theirs)]
            # Bytes per CPU second, zynet / peer: the peer's CPU time over zynet's.
            cpu_ratios = [b[1] / a[1] for a, b in zip(mine, theirs)]
            cpu = "%.2f" % statistics.median(cpu_ratios)
            ratio = statistics.median(ratios)
            target = TARGETS[peer]
            verdict = ("met" if ratio >= target else "**missed**") + " (>= %.2f)" % target
            out.append("| %s | %s | %s | %s | %.2f (%.2f-%.2f) | %s | %.1f / %.1f | %s |" % (
                self.title, peer_label(peer), speed(mine), speed(theirs), ratio, min(ratios), max(ratios),
                cpu, max(m[2] for m in mine), max(t[2] for t in theirs), verdict))
        return out


def speed(results):
    """Median MiB/s; for one-process-per-file rows also the time a process."""
    mib = statistics.median(r[0] for r in results)
    ms = statistics.median(r[3] for r in results) * 1000
    return "%.0f" % mib if ms > 100 else "%.2f (%.1f ms a process)" % (mib, ms)


def peer_label(peer):
    return {"curl": "curl tool", "wget": "wget", "lftp": "lftp", "sftp": "OpenSSH sftp -b",
            "curl, all URLs": "one curl process, all URLs"}[peer]


def remove(path):
    if os.path.isdir(path):
        shutil.rmtree(path)
    elif os.path.exists(path):
        os.remove(path)


def build_rows(zynet, servers, work, size, small_count, small_size):
    local = os.path.join(work, "local")
    source = os.path.join(local, "source.bin")           # what uploads send
    target = os.path.join(local, "download.bin")         # where downloads land
    served = os.path.join(servers.root, "big.bin")       # what downloads fetch
    stored = os.path.join(servers.up, "big.bin")         # where uploads land
    http, ftp = "http://127.0.0.1:%d" % servers.http, "ftp://127.0.0.1:%d" % servers.ftp
    sftp = "sftp://%s@127.0.0.1:%d" % (servers.ssh_user, servers.sftp)
    ssh_key = ["--key", servers.key]
    curl_key = ["--key", servers.key, "--pubkey", servers.key + ".pub"]
    ssh_opts = ["-F", "/dev/null", "-o", "BatchMode=yes", "-o", "StrictHostKeyChecking=no",
                "-o", "UserKnownHostsFile=/dev/null", "-o", "LogLevel=ERROR", "-i", servers.key,
                "-P", str(servers.sftp)]
    batch_get, batch_put = os.path.join(local, "get.batch"), os.path.join(local, "put.batch")
    with open(batch_get, "w") as f:
        f.write("get %s %s\n" % (served, target))
    with open(batch_put, "w") as f:
        f.write("put %s %s\n" % (source, stored))

    def download(command):
        def prepare():
            remove(target)
            return [command]
        return prepare

    def upload(command):
        def prepare():
            remove(stored)
            return [command]
        return prepare

    def check_size(path):
        def check(name):
            if os.path.getsize(path) != size:
                raise RuntimeError("%s: %s holds %d bytes, not %d" % (name, path, os.path.getsize(path), size))
        return check

    def lftp(script):
        return ["lftp", "-c", "set cmd:interactive false; set xfer:clobber true; set net:max-retries 1; "
                "open -p %d 127.0.0.1; %s" % (servers.ftp, script)]

    rows = [
        Row("http-get", "HTTP download (nginx)", size, download([zynet, "get", http + "/big.bin", "-o", target]),
            [("curl", download(["curl", "-sS", "-f", "-o", target, http + "/big.bin"])),
             ("wget", download(["wget", "-q", "-O", target, http + "/big.bin"]))], check_size(target)),
        Row("http-put", "HTTP upload, PUT (nginx WebDAV)", size,
            upload([zynet, "put", source, http + "/up/big.bin"]),
            [("curl", upload(["curl", "-sS", "-f", "-T", source, http + "/up/big.bin"]))], check_size(stored)),
        Row("ftp-get", "FTP download (vsftpd)", size, download([zynet, "get", ftp + "/big.bin", "-o", target]),
            [("curl", download(["curl", "-sS", "-o", target, ftp + "/big.bin"])),
             ("lftp", download(lftp("get /big.bin -o %s" % target)))], check_size(target)),
        Row("ftp-put", "FTP upload (vsftpd)", size, upload([zynet, "put", source, ftp + "/up/big.bin"]),
            [("curl", upload(["curl", "-sS", "-T", source, ftp + "/up/big.bin"])),
             ("lftp", upload(lftp("put %s -o /up/big.bin" % source)))], check_size(stored)),
        Row("sftp-get", "SFTP download (OpenSSH sshd)", size,
            download([zynet, "get", sftp + served, "-o", target, "--insecure"] + ssh_key),
            [("curl", download(["curl", "-sS", "-k"] + curl_key + ["-o", target, sftp + served])),
             ("sftp", download(["sftp", "-q", "-b", batch_get] + ssh_opts + [servers.ssh_user + "@127.0.0.1"]))],
            check_size(target)),
        Row("sftp-put", "SFTP upload (OpenSSH sshd)", size,
            upload([zynet, "put", source, sftp + stored, "--insecure"] + ssh_key),
            [("curl", upload(["curl", "-sS", "-k"] + curl_key + ["-T", source, sftp + stored])),
             ("sftp", upload(["sftp", "-q", "-b", batch_put] + ssh_opts + [servers.ssh_user + "@127.0.0.1"]))],
            check_size(stored)),
    ]

    small_dir = os.path.join(servers.root, "small")
    os.makedirs(small_dir)
    names = ["f%04d.bin" % i for i in range(small_count)]
    for name in names:
        write_random(os.path.join(small_dir, name), small_size)
    urls = [http + "/small/" + name for name in names]
    into = os.path.join(local, "small")
    total = small_count * small_size

    def fresh_into():
        remove(into)
        os.makedirs(into)

    def each(make):
        def prepare():
            fresh_into()
            return [make(url, os.path.join(into, name)) for url, name in zip(urls, names)]
        return prepare

    def check_small(name):
        got = sum(os.path.getsize(os.path.join(into, n)) for n in names)
        if got != total:
            raise RuntimeError("%s: %d bytes of small files, not %d" % (name, got, total))

    label = "%d files of %d KiB from nginx" % (small_count, small_size // 1024)
    rows.append(Row("small-each", label + ", one process per file", total,
                    each(lambda url, path: [zynet, "get", url, "-o", path]),
                    [("curl", each(lambda url, path: ["curl", "-sS", "-f", "-o", path, url]))], check_small))

    # One all-URLs process takes some 50 ms, too short to time alone on a
    # shared machine: each side runs it MULTI_RUNS times in a row (the later
    # runs replace the files of the first), timed together.
    def multi(command):
        def prepare():
            fresh_into()
            return [command] * MULTI_RUNS
        return prepare

    row = Row("small-multi", label + ", all URLs in one process", total * MULTI_RUNS,
              multi([zynet, "get"] + urls + ["-d", into]),
              [("curl, all URLs", multi(["curl", "-sS", "-f", "--remote-name-all", "--output-dir", into] + urls))],
              check_small)
    help_text = subprocess.run([zynet, "get", "--help"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               text=True).stdout
    if not re.search(r"(^|\s)-d\b", help_text):
        row.skipped = "zynet has no multi-URL mode yet"
    rows.append(row)
    return rows, source, served


def section(rows, rounds, size, small_count, small_size, load, load_after, zynet, elapsed):
    def first_line(command, pattern):
        text = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True).stdout
        found = re.search(pattern, text)
        return found.group(0) if found else text.splitlines()[0].strip()
    versions = [first_line(["curl", "--version"], r"curl \S+ .*?libssh2/\S+"),
                first_line(["wget", "--version"], r"GNU Wget \S+"),
                "lftp " + first_line(["lftp", "--version"], r"(?<=Version )\S+"),
                first_line(["ssh", "-V"], r"OpenSSH_\S+")]
    nginx = first_line(["nginx", "-v"], r"nginx/\S+")
    commit = subprocess.run(["git", "-C", ROOT, "rev-parse", "--short", "HEAD"], stdout=subprocess.PIPE,
                            text=True).stdout.strip()
    lines = [
        START,
        "## Transfers (the zynet tool against the tools users pick)",
        "",
        "Whole processes of the zynet tool (`%s`) against the curl tool and against" % (
            os.path.relpath(zynet, ROOT) if zynet.startswith(ROOT + os.sep) else zynet),
        "the tool users pick for each protocol, on loopback, from servers started for the run: nginx",
        "(WebDAV PUT for uploads), vsftpd (anonymous download and upload) and OpenSSH's sshd (key login).",
        "Regenerate with `bash scripts/bench.sh`, or alone with",
        "`ZYNET_BENCH_SIZE_MB=%d /usr/bin/python3 scripts/bench_transfer.py ZYNET docs/PERFORMANCE.md %d`." %
        (size // MIB, rounds),
        "",
        "- Large file: %d MiB of random bytes (`ZYNET_BENCH_SIZE_MB`, 1024 unless set); small files: %d of %d KiB." %
        (size // MIB, small_count, small_size // 1024),
        "  Every file read or written lies on tmpfs. The multi-URL row is measured once `zynet get --help`",
        "  offers `-d DIR`.",
        "- %d rounds per row. Each round runs zynet and each peer once, zynet first in even rounds and last in" %
        rounds,
        "  odd ones (A B, B A, ...). Throughput is bytes over the wall time of the whole process (both sides pay",
        "  their start-up); the ratio zynet / peer (higher is better) is taken within each round: its median and",
        "  min-max are given. The one-process-per-file row times all the processes of one side together;",
        "  the all-URLs row runs its one process %d times in a row and times them together." % MULTI_RUNS,
        "- \"CPU ratio\" compares bytes per CPU second (user + system) of the client process, zynet / peer: the",
        "  steadier figure while other work shares the processors. Peak RSS is each client process's own",
        "  maximum resident size (`/usr/bin/time`'s %M), the highest over the rounds.",
        "- Peers run without progress output and write the same tmpfs paths: `curl -sS` (`-f` for HTTP; SFTP",
        "  with `-k` and the key), `wget -q -O`, `lftp -c 'open ...; get/put ...'`, `sftp -b BATCH` with",
        "  the key and host-key checks off; zynet gets `--insecure` and the key for SFTP.",
        "- Versions: %s; %s; %s; %s; %s." % tuple(versions + [nginx]),
        "- Load average %s at the start, %s at the end (2 shared processors: single rounds vary a lot)." %
        (" ".join(load), " ".join(load_after)),
        "- Date: %s, commit %s, %d s." % (time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime()), commit, elapsed),
        "",
        "| transfer | against | zynet MiB/s | peer MiB/s | ratio zynet / peer | CPU ratio | peak RSS MiB, zynet / peer | target |",
        "|---|---|---:|---:|---|---:|---|---|",
    ]
    for row in rows:
        lines += row.lines()
    lines.append(END)
    return "\n".join(lines) + "\n"


def write_section(report, text):
    old = open(report).read() if os.path.exists(report) else ""
    if START in old and END in old:
        old = old[:old.index(START)] + text + old[old.index(END) + len(END) + 1:]
    else:
        old = old.rstrip("\n") + "\n\n" + text
    with open(report, "w") as f:
        f.write(old)


def main():
    if len(sys.argv) not in (3, 4):
        sys.stderr.write(__doc__)
        return 2
    zynet, report = os.path.abspath(sys.argv[1]), sys.argv[2]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 4
    size = int(os.environ.get("ZYNET_BENCH_SIZE_MB", "1024")) * MIB
    small_count = int(os.environ.get("ZYNET_BENCH_SMALL_FILES", "500"))
    small_size = int(os.environ.get("ZYNET_BENCH_SMALL_KB", "16")) * 1024
    only = re.compile(os.environ.get("ZYNET_BENCH_ROWS", "."))
    started = time.monotonic()
    base, mounted = tmpfs_base()
    work = tempfile.mkdtemp(prefix="zynet-bench-transfer-", dir=base)
    os.chmod(work, 0o755)
    servers = Servers(work)
    try:
        servers.start_nginx()
        servers.start_vsftpd()
        servers.start_sshd()
        rows, source, served = build_rows(zynet, servers, work, size, small_count, small_size)
        write_random(source, size)
        shutil.copyfile(source, served)
        os.chmod(served, 0o644)
        load = open("/proc/loadavg").read().split()[:3]
        for row in rows:
            if not only.search(row.key):
                row.skipped = row.skipped or "left out of this run (ZYNET_BENCH_ROWS)"
            if row.skipped:
                print("%-10s not measured: %s" % (row.key, row.skipped), flush=True)
                continue
            row.measure(rounds, lambda text: print(text, flush=True))
        load_after = open("/proc/loadavg").read().split()[:3]
    finally:
        servers.stop()
        shutil.rmtree(work, ignore_errors=True)
        if mounted:
            subprocess.run(["umount", mounted])
            os.rmdir(mounted)
    text = section(rows, rounds, size, small_count, small_size, load, load_after, zynet,
                   int(time.monotonic() - started))
    write_section(report, text)
    print(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
