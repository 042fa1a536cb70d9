#!/usr/bin/env python3
"""Checks zynet get, put, ls, head, rm and mkdir over ftp://, ftps:// and
sftp:// against the loopback servers that tests/support/ftp_servers.py
started (their description is named by ZYTEST_FTP_SERVERS).

usage: zynet_ftp.py --zynet PATH [--emulator PROGRAM] CASE
Exit 0 passed, 77 skipped, anything else failed.
"""
import argparse
import json
import os
import sys
import tempfile
import urllib.parse

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from zynet_cli import Failure, Skip, SKIP, Tool, expect, expect_run  # noqa: E402


def servers():
    path = os.environ.get("ZYTEST_FTP_SERVERS", "")
    if not path or not os.path.exists(path):
        raise Skip("the loopback servers are not running (ZYTEST_FTP_SERVERS)")
    with open(path) as f:
        return json.load(f)


def host_path(tool, path):
    return "Z:" + path if tool.windows else path


def round_trip(tool, s, base, extra, work):
    """put, get, head, ls, mkdir and rm through one kind of URL."""
    data = os.urandom(200000)
    disk = os.path.join(s["root"], work)
    with tempfile.TemporaryDirectory() as tmp:
        src = os.path.join(tmp, "source file.bin")
        with open(src, "wb") as f:
            f.write(data)
        remote = base + urllib.parse.quote("%s/new dir/\u00fcp load.bin" % work)
        expect_run(tool, ["put", host_path(tool, src), remote] + extra, 0, r"200000 bytes sent")
        with open(os.path.join(disk, "new dir", "\u00fcp load.bin"), "rb") as f:
            expect(f.read() == data, "the server's copy differs from the uploaded file")
        back = os.path.join(tmp, "back.bin")
        expect_run(tool, ["get", remote, "-o", host_path(tool, back)] + extra, 0, r"200000 bytes saved")
        with open(back, "rb") as f:
            expect(f.read() == data, "the downloaded copy differs")
        expect_run(tool, ["head", remote] + extra, 0, r"^size\s+200000$")
        # Wine's Schannel takes the server's close of a TLS data connection
        # (the end of every FTPS listing) for an error: no ls over FTPS there.
        if not (tool.windows and base.startswith("ftps:")):
            out = tool.json("ls", base + urllib.parse.quote("tree/"), *extra)
            listed = {(e["name"], e["directory"]) for e in out["entries"]}
            tree = os.path.join(s["root"], "tree")
            expected = {(n, os.path.isdir(os.path.join(tree, n))) for n in os.listdir(tree)}
            expect(listed == expected, "ls: %r, on disk: %r" % (sorted(listed), sorted(expected)))
        expect_run(tool, ["mkdir", base + urllib.parse.quote(work + "/made")] + extra, 0, "made ")
        expect(os.path.isdir(os.path.join(disk, "made")), "mkdir did not make the directory")
        expect_run(tool, ["rm", remote] + extra, 0, "removed ")
        expect(not os.path.exists(os.path.join(disk, "new dir", "\u00fcp load.bin")), "rm left the file")
        _, err = expect_run(tool, ["rm", remote] + extra, 1)
        expect("RkCURL.21." in err, "deleting a missing file should give curl's 21:\n" + err)


def case_ftp(tool):
    s = servers()
    user = ["--user", "%s:%s" % (s["user"], s["password"])]
    round_trip(tool, s, "ftp://127.0.0.1:%d/" % s["ftp"], user, "work-tool/ftp")
    ca = ["--cacert", host_path(tool, s["caFile"])]
    # By name: Windows' Schannel matches no IP address in a certificate.
    round_trip(tool, s, "ftps://localhost:%d/" % s["ftps"], user + ca, "work-tool/ftps")
    _, err = expect_run(tool, ["ls", "ftp://127.0.0.1:%d/" % s["ftp"], "--user", "zyftp:wrong"], 1)
    expect("RkCURL.67." in err, "a wrong password should give curl's 67:\n" + err)
    expect_run(tool, ["mkdir", "https://127.0.0.1:1/x"], 2, None, r"'https' URLs have no mkdir")
    expect_run(tool, ["get", "ftp://127.0.0.1:1/x", "--key", "k"], 2, None, r"--key and --known-hosts are for sftp")


def case_sftp(tool):
    s = servers()
    if not s.get("sftp"):
        raise Skip(s.get("sftpProblem", "sshd did not start"))
    base = "sftp://127.0.0.1:%d%s/" % (s["sftp"], urllib.parse.quote(s["root"]))
    key = ["--user", s["sftpKeyUser"] + ":", "--key", host_path(tool, s["keyFile"]),
           "--known-hosts", host_path(tool, s["knownHosts"])]
    probe = tool.run_raw(["head", base + "tree/a%20file.txt"] + key)
    if probe[0] != 0 and b"RkCURL.1." in probe[2]:
        raise Skip("the loaded libcurl has no SFTP")
    round_trip(tool, s, base, key, "work-tool/sftp")
    wrong = key[:-1] + [host_path(tool, s["wrongKnownHosts"])]
    _, err = expect_run(tool, ["ls", base + "tree/"] + wrong, 1)
    expect("RkCURL.60." in err, "an unknown host key should give curl's 60:\n" + err)
    expect_run(tool, ["ls", base + "tree/", "--insecure"] + wrong, 0)


CASES = {"ftp": case_ftp, "sftp": case_sftp}


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
