#!/usr/bin/env python3
"""Checks `zynet upload-log` as a user runs it.

usage: zynet_upload_log.py --zynet PATH [--emulator PROGRAM]

On Windows (the tool is an .exe) it uploads to the scripted loopback server
of tests/support/http_record_server.py and compares what the server received
with the form laid out here; elsewhere the command must refuse with a clear
message. Exit 0 passed, anything else failed.
"""
import argparse
import base64
import json
import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import http_record_server  # noqa: E402

BOUNDARY = b"--HTTP-LOGUPLOAD-DEFAULT-BOUNDARY--"


def expected_body(jsp, ccid, user, password, name, data):
    def part(key, value):
        return (b"--" + BOUNDARY + b"\r\nContent-Disposition: form-data; name=\"" + key + b"\"\r\n\r\n" + value +
                b"\r\n")
    body = part(b"mode", b"go") + part(b"ccid", ccid)
    if jsp:
        body += part(b"username", user) + part(b"password", password)
    body += (b"--" + BOUNDARY + b"\r\nContent-Disposition: form-data; name=\"logfile\"; filename=" + name +
             b"\r\nContent-Type: application/octet-stream\r\n\r\n" + data + b"\r\n" + part(b"submit", b"Upload") +
             b"--" + BOUNDARY + b"--\r\n")
    return body


def run(command, args):
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        rc = subprocess.run(command + args, stdin=subprocess.DEVNULL, stdout=out, stderr=err, timeout=120).returncode
        out.seek(0)
        err.seek(0)
        return rc, out.read().decode("utf-8", "replace"), err.read().decode("utf-8", "replace")


def check(condition, message):
    if not condition:
        raise SystemExit("FAILED: " + message)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--zynet", required=True)
    parser.add_argument("--emulator", default="")
    options = parser.parse_args()
    command = ([options.emulator] if options.emulator else []) + [options.zynet]

    rc, out, _ = run(command, ["upload-log", "--help"])
    check(rc == 0 and "--ccid" in out and "--jsp" in out, "upload-log --help: %d %s" % (rc, out))

    if not options.zynet.lower().endswith(".exe"):
        rc, out, err = run(command, ["upload-log", "some.log", "http://127.0.0.1:1/"])
        check(rc == 1 and "Windows only" in err, "expected the Windows-only refusal: %d %s %s" % (rc, out, err))
        rc, out, _ = run(command, ["--json", "upload-log", "some.log", "http://127.0.0.1:1/"])
        check(rc == 1 and "Windows only" in json.loads(out)["error"]["what"], "JSON refusal: " + out)
        print("passed (refusal on this platform)")
        return 0

    workdir = tempfile.mkdtemp(prefix="zynet-upload-")
    root = os.path.join(workdir, "root")
    records = os.path.join(workdir, "records")
    os.mkdir(root)
    os.mkdir(records)
    servers = http_record_server.Servers(root, records, workdir)
    try:
        data = b"line one\r\n\x00\x01binary\r\n--" + bytes(range(256)) * 40
        log = os.path.join(workdir, "client log.txt")
        with open(log, "wb") as out_file:
            out_file.write(data)
        wine_log = "Z:" + log.replace("/", "\\")
        url = "http://127.0.0.1:%d/collect/" % servers.ports["http"]

        rc, out, err = run(command, ["--json", "upload-log", wine_log, url, "--jsp", "--ccid", "C-9",
                                     "--user", "me:pw:x"])
        check(rc == 0, "upload-log --jsp: %d %s %s" % (rc, out, err))
        doc = json.loads(out)
        check(doc["ok"] and doc["bytes"] == len(data) and doc["url"] == url + "httplogupload.do", "JSON: " + out)
        name = os.path.join(records, "POST_collect_httplogupload.do")
        with open(name + ".body", "rb") as body, open(name + ".head", "rb") as head:
            received, headers = body.read(), head.read().decode("latin-1")
        check(received == expected_body(True, b"C-9", b"me", b"pw:x", b"client log.txt", data),
              "JSP body differs (%d bytes)" % len(received))
        check("Authorization: Basic " + base64.b64encode(b"me:pw:x").decode() in headers, headers)

        rc, out, err = run(command, ["upload-log", wine_log, url])
        check(rc == 0 and "upload.asp" in out, "upload-log: %d %s %s" % (rc, out, err))
        with open(os.path.join(records, "POST_collect_upload.asp.body"), "rb") as body:
            check(body.read() == expected_body(False, b"NO CCID", b"", b"", b"client log.txt", data),
                  "ASP body differs")

        rc, out, err = run(command, ["upload-log", wine_log + ".missing", url])
        check(rc == 1 and "cannot read" in err, "missing file: %d %s %s" % (rc, out, err))
    finally:
        servers.close()
        shutil.rmtree(workdir, ignore_errors=True)
    print("passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
