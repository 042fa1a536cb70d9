#!/usr/bin/env python3
"""Runs the echo examples against each other on loopback.

usage: examples_roundtrip.py BIN_DIR

echo_server serves one echo_client session and exits; selector_server
serves two clients at once and stops when idle. Exit 0 passed, 1 failed.
"""
import os
import subprocess
import sys


def start_server(path, *args):
    server = subprocess.Popen([path] + list(args), stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    first = server.stdout.readline().strip()
    if not first.startswith("listening on 127.0.0.1:"):
        server.kill()
        raise AssertionError("%s did not start: %r %s" % (path, first, server.stderr.read()))
    return server, first.rsplit(":", 1)[1]


def client(bin_dir, port, *messages):
    return subprocess.Popen([os.path.join(bin_dir, "echo_client"), "127.0.0.1", port] + list(messages),
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def check_client(proc, messages):
    out, err = proc.communicate(timeout=30)
    expected = "".join("echo: %s\n" % m for m in messages)
    assert proc.returncode == 0 and out == expected, "client exit %d\n%s\n%s" % (proc.returncode, out, err)


def main():
    bin_dir = sys.argv[1]
    big = "".join(chr(ord("a") + i % 26) for i in range(20000))
    messages = ["hello", "", "two words", big]

    # One session with the time-limited server; it exits after one client.
    server, port = start_server(os.path.join(bin_dir, "echo_server"), "0", "1")
    check_client(client(bin_dir, port, *messages), messages)
    out, err = server.communicate(timeout=30)
    assert server.returncode == 0 and "client 127.0.0.1" in out, "echo_server: %d %s %s" % (
        server.returncode, out, err)

    # Two clients served together by the selector server, which then stops
    # after two idle seconds.
    server, port = start_server(os.path.join(bin_dir, "selector_server"), "0", "2")
    first = client(bin_dir, port, *messages)
    second = client(bin_dir, port, "other", big)
    check_client(first, messages)
    check_client(second, ["other", big])
    out, err = server.communicate(timeout=30)
    assert server.returncode == 0 and out.count("client 127.0.0.1") == 2 and "idle for 2 s" in out, (
        "selector_server: %d %s %s" % (server.returncode, out, err))

    # A client with nobody listening fails with the error's stack.
    proc = client(bin_dir, port, "x")
    out, err = proc.communicate(timeout=30)
    assert proc.returncode == 1 and "connect failed" in err and "#0 " in err, "refused: %d %s" % (
        proc.returncode, err)
    print("passed")


if __name__ == "__main__":
    try:
        main()
    except AssertionError as failure:
        print("FAILED: %s" % failure)
        sys.exit(1)
