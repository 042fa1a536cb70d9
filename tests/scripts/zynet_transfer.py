#!/usr/bin/env python3
"""Checks zynet get, put, ls and head against the loopback servers that
tests/support/http_servers.py started (their description is named by
ZYTEST_HTTP_SERVERS).

usage: zynet_transfer.py --zynet PATH [--emulator PROGRAM] CASE
Exit 0 passed, 77 skipped, anything else failed.
"""
import argparse
import json
import os
import pty
import select
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from zynet_cli import Failure, Skip, SKIP, Tool, expect, expect_run  # noqa: E402


def servers():
    path = os.environ.get("ZYTEST_HTTP_SERVERS", "")
    if not path or not os.path.exists(path):
        raise Skip("the loopback servers are not running (ZYTEST_HTTP_SERVERS)")
    with open(path) as f:
        return json.load(f)


def url(port, path, scheme="http", host="127.0.0.1"):
    return "%s://%s:%d%s" % (scheme, host, port, path)


def host_path(tool, path):
    return "Z:" + path if tool.windows else path


def case_get_put(tool):
    s = servers()
    data = os.urandom(300000)
    with tempfile.TemporaryDirectory() as tmp:
        src = os.path.join(tmp, "source file.bin")
        with open(src, "wb") as f:
            f.write(data)
        target = url(s["http"], "/dav/tool/up%20load.bin")
        expect_run(tool, ["put", host_path(tool, src), target], 0, r"300000 bytes sent to .* \(status 201\)")
        with open(os.path.join(s["www"], "dav", "tool", "up load.bin"), "rb") as f:
            expect(f.read() == data, "the server's copy differs from the uploaded file")
        back = os.path.join(tmp, "back.bin")
        out = tool.json("get", target, "-o", host_path(tool, back))
        expect(out["bytes"] == len(data) and out["status"] == 200, "get --json: %r" % out)
        with open(back, "rb") as f:
            expect(f.read() == data, "the downloaded copy differs")
        # To stdout, byte for byte; no progress line when stderr is not a terminal.
        rc, body, err = tool.run_raw(["get", url(s["http"], "/hello.txt")])
        expect(rc == 0 and body == b"hello from nginx\n", "get to stdout: %r %r" % (rc, body))
        expect(err == b"", "stderr is not a terminal, yet it got: %r" % err)
        # Credentials, and a failure with the error's whole stack.
        expect_run(tool, ["get", url(s["http"], "/auth/secret.txt"), "--user", "%s:%s" % (s["user"], s["password"])],
                   0, "authorised bytes")
        _, err = expect_run(tool, ["get", url(s["http"], "/missing.txt"), "-o", host_path(tool, back)], 1)
        expect("Response code from server: [404]" in err and "#2 " in err, "no error stack on stderr:\n" + err)
        out = tool.json("get", url(s["http"], "/missing.txt"), "-o", host_path(tool, back), expect_rc=1)
        expect(len(out["error"]["stack"]) >= 3, "--json error without its stack: %r" % out)


def case_ls_head(tool):
    s = servers()
    out = tool.json("ls", url(s["http"], "/list/"))
    listed = {(e["name"], e["directory"]) for e in out["entries"]}
    tree = os.path.join(s["www"], "list")
    expected = {(n, os.path.isdir(os.path.join(tree, n))) for n in os.listdir(tree)}
    expect(listed == expected, "ls: %r, on disk: %r" % (sorted(listed), sorted(expected)))
    expect_run(tool, ["ls", url(s["http"], "/list/sub%20dir/")], 0, r"^-\s+7\s+\S+ \S+\s+inner\.txt$")
    expect_run(tool, ["head", url(s["http"], "/big/1GiB.bin")], 0, r"^size\s+%d$" % s["bigSize"])
    ca = host_path(tool, s["caFile"])
    expect_run(tool, ["head", url(s["https"], "/hello.txt", "https", "localhost"), "--cacert", ca], 0, r"^size\s+17$")
    _, err = expect_run(tool, ["head", url(s["https"], "/hello.txt", "https", "localhost"),
                               "--cacert", host_path(tool, s["wrongCaFile"])], 1)
    expect("RkCURL.60." in err, "an unknown CA should give curl's 60:\n" + err)
    expect_run(tool, ["head", url(s["https"], "/hello.txt", "https", "localhost"), "--insecure"], 0, r"^status 200$")
    expect_run(tool, ["head", url(s["silent"], "/x"), "--timeout", "1"], 1, None, r"RkCURL\.28\.")
    # Through the proxy, with and without its login.
    proxy = "localhost:%d" % s["proxy"]
    expect_run(tool, ["head", url(s["http"], "/hello.txt"), "--proxy", proxy], 1, None, r"server: \[40[17]\]")
    expect_run(tool, ["head", url(s["http"], "/hello.txt"), "--proxy", proxy, "--proxy-user",
                      "%s:%s" % (s["proxyUser"], s["proxyPassword"])], 0, r"^status 200$")


def case_usage(tool):
    s = servers()
    expect_run(tool, ["get", "gopher://127.0.0.1/x"], 2, None,
               r"unsupported URL scheme 'gopher' \(supported: http, https, ftp, ftps, sftp\)")
    expect_run(tool, ["get", url(s["http"], "/x"), "--client", "nosuch"], 2, None,
               r"unknown client 'nosuch' \(available: curl")
    expect_run(tool, ["get", "not a url"], 2, None, "is not a URL")
    expect_run(tool, ["--json", "get", url(s["http"], "/hello.txt")], 2, None, "--json needs -o FILE")
    expect_run(tool, ["put", "only-one-argument"], 2)


def run_on_pty(command, timeout=120):
    """Runs `command` with stderr on a pseudo-terminal; returns (rc, stderr bytes)."""
    master, slave = pty.openpty()
    with open(os.devnull, "wb") as null:
        proc = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=null, stderr=slave)
    os.close(slave)
    chunks = []
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        ready, _, _ = select.select([master], [], [], 0.5)
        if ready:
            try:
                chunk = os.read(master, 65536)
            except OSError:
                break
            if not chunk:
                break
            chunks.append(chunk)
        elif proc.poll() is not None:
            break
    os.close(master)
    return proc.wait(timeout=10), b"".join(chunks)


def case_progress(tool):
    s = servers()
    if tool.windows:
        raise Skip("a pseudo-terminal is a Linux device; the Windows console is not one under Wine")
    big = url(s["http"], "/big/1GiB.bin")
    rc, err = run_on_pty(tool.command + ["get", big, "-o", os.devnull])
    expect(rc == 0, "get on a terminal failed: %r" % err)
    expect(b"\r" in err and b"GiB" in err and b"/s" in err and b"left" in err, "no progress line: %r" % err[-400:])
    rc, err = run_on_pty(tool.command + ["--json", "get", big, "-o", os.devnull])
    expect(rc == 0 and b"\r" not in err, "--json drew progress: %r" % err[-400:])


CASES = {"get_put": case_get_put, "ls_head": case_ls_head, "usage": case_usage, "progress": case_progress}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--zynet", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("case", choices=sorted(CASES))
    args = parser.parse_args()
    tool = Tool(args.zynet, args.emulator)
    try:
        CASES[args.case](tool)
    except Skip as skip:
        print("skipped: %s" % skip)
        return SKIP
    except Failure as failure:
        print("FAILED: %s" % failure)
        return 1
    print("passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
