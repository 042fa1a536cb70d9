#!/usr/bin/env python3
"""Runs a Windows test program against the scripted HTTP servers.

usage: run_with_servers.py [--emulator PROGRAM] PROGRAM [ARGS...]

Starts an HTTP, an HTTPS (self-signed, TLS 1.2) and a silent server on free
loopback ports over a fresh temporary root (see
tests/support/http_record_server.py), runs PROGRAM (under the emulator when
one is given) with their ports and directories in the environment, stops the
servers and exits with the program's status:
  ZYHTTP_TEST_HTTP_PORT, ZYHTTP_TEST_HTTPS_PORT, ZYHTTP_TEST_SILENT_PORT
  ZYHTTP_TEST_ROOT     the servers' document root (served from "/")
  ZYHTTP_TEST_RECORDS  where the servers record each request
  ZYHTTP_TEST_HOSTILE_PORT, ZYHTTP_TEST_HOSTILETLS_PORT,
  ZYHTTP_TEST_HOSTILEHALFWAY_PORT   the servers of hostile_server.py
Directories are given as the program sees them (Wine's Z: drive).
"""
import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import hostile_server  # noqa: E402
import http_record_server  # noqa: E402


def program_path(path, emulated):
    return "Z:" + path.replace("/", "\\") if emulated else path


def main(argv):
    emulator = None
    if len(argv) >= 2 and argv[0] == "--emulator":
        emulator = argv[1] or None
        argv = argv[2:]
    if not argv:
        sys.stderr.write(__doc__)
        return 2
    workdir = tempfile.mkdtemp(prefix="zyhttp-test-")
    root = os.path.join(workdir, "root")
    records = os.path.join(workdir, "records")
    os.mkdir(root)
    os.mkdir(records)
    servers = http_record_server.Servers(root, records, workdir)
    hostile = None
    try:
        hostile = hostile_server.HostileServers(workdir)
        env = dict(os.environ)
        ports = servers.ports
        env.update({"ZYHTTP_TEST_HTTP_PORT": str(ports["http"]), "ZYHTTP_TEST_HTTPS_PORT": str(ports["https"]),
                    "ZYHTTP_TEST_SILENT_PORT": str(ports["silent"]),
                    "ZYHTTP_TEST_ROOT": program_path(root, emulator is not None),
                    "ZYHTTP_TEST_RECORDS": program_path(records, emulator is not None)})
        env.update({"ZYHTTP_TEST_%s_PORT" % name.upper(): str(port) for name, port in hostile.ports.items()})
        command = ([emulator] if emulator else []) + argv
        # Output goes through a file: the emulator's helper processes may
        # inherit a pipe and hold it open after the program has exited.
        with tempfile.TemporaryFile() as out:
            program = subprocess.Popen(command, env=env, stdin=subprocess.DEVNULL, stdout=out,
                                       stderr=subprocess.STDOUT)
            try:
                rc = program.wait(timeout=int(os.environ.get("ZYHTTP_TEST_LIMIT", "240")))
            except subprocess.TimeoutExpired:
                program.kill()
                program.wait()
                sys.stdout.write("run_with_servers.py: the program did not finish in time; its output:\n")
                rc = 1
            out.seek(0)
            sys.stdout.write(out.read().decode("utf-8", "replace"))
        return rc
    finally:
        if hostile:
            hostile.close()
        servers.close()
        shutil.rmtree(workdir, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
