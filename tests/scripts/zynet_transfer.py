#!/usr/bin/env python3
"""Checks the tool's transfer commands as a user runs them, against the
servers of tests/support/http_servers.py (ZYTEST_HTTP_SERVERS) and
ftp_servers.py (ZYTEST_FTP_SERVERS), and upload-log.

usage: zynet_transfer.py --zynet PATH [--emulator PROGRAM] CASE
"""
import base64
import json
import os
import shutil
import sys
import tempfile
import urllib.parse

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from zynet_tool import Skip, expect, expect_run, main  # noqa: E402
import http_record_server  # noqa: E402


def servers(variable="ZYTEST_HTTP_SERVERS"):
    path = os.environ.get(variable, "")
    if not path or not os.path.exists(path):
        raise Skip("the loopback servers are not running (%s)" % variable)
    with open(path) as f:
        return json.load(f)


def listed_as_on_disk(tool, url_, directory, extra=()):
    out = tool.json("ls", url_, *extra)
    listed = {(e["name"], e["directory"]) for e in out["entries"]}
    expected = {(n, os.path.isdir(os.path.join(directory, n))) for n in os.listdir(directory)}
    expect(listed == expected, "ls: %r, on disk: %r" % (sorted(listed), sorted(expected)))


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


def case_ls_head(tool):
    s = servers()
    listed_as_on_disk(tool, url(s["http"], "/list/"), os.path.join(s["www"], "list"))
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
            listed_as_on_disk(tool, base + "tree/", os.path.join(s["root"], "tree"), extra)
        expect_run(tool, ["mkdir", base + urllib.parse.quote(work + "/made")] + extra, 0, "made ")
        expect(os.path.isdir(os.path.join(disk, "made")), "mkdir did not make the directory")
        expect_run(tool, ["rm", remote] + extra, 0, "removed ")
        expect(not os.path.exists(os.path.join(disk, "new dir", "\u00fcp load.bin")), "rm left the file")
        _, err = expect_run(tool, ["rm", remote] + extra, 1)
        expect("RkCURL.21." in err, "deleting a missing file should give curl's 21:\n" + err)


def case_ftp(tool):
    s = servers("ZYTEST_FTP_SERVERS")
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
    s = servers("ZYTEST_FTP_SERVERS")
    if not s.get("sftp"):
        raise Skip(s.get("sftpProblem", "sshd did not start"))
    base = "sftp://127.0.0.1:%d%s/" % (s["sftp"], urllib.parse.quote(s["root"]))
    key = ["--user", s["sftpKeyUser"] + ":", "--key", host_path(tool, s["keyFile"]),
           "--known-hosts", host_path(tool, s["knownHosts"])]
    round_trip(tool, s, base, key, "work-tool/sftp")
    wrong = key[:-1] + [host_path(tool, s["wrongKnownHosts"])]
    _, err = expect_run(tool, ["ls", base + "tree/"] + wrong, 1)
    expect("RkCURL.60." in err, "an unknown host key should give curl's 60:\n" + err)
    expect_run(tool, ["ls", base + "tree/", "--insecure"] + wrong, 0)


def case_upload_log(tool):
    """On Windows an upload to the recording server of
    tests/support/http_record_server.py; elsewhere the command must refuse
    with a clear message. The form byte for byte is checked by
    ZyHttpTest.UploadSendsTheFormByteForByteInBothModes; here, that the
    options reach it."""
    rc, out, _ = tool.run("upload-log", "--help")
    expect(rc == 0 and "--ccid" in out and "--jsp" in out, "upload-log --help: %d %s" % (rc, out))
    if not tool.windows:
        expect_run(tool, ["upload-log", "some.log", "http://127.0.0.1:1/"], 1, None, "Windows only")
        doc = tool.json("upload-log", "some.log", "http://127.0.0.1:1/", expect_rc=1)
        expect("Windows only" in doc["error"]["what"], "JSON refusal: %r" % doc)
        return
    workdir = tempfile.mkdtemp(prefix="zynet-upload-")
    root = os.path.join(workdir, "root")
    records = os.path.join(workdir, "records")
    os.mkdir(root)
    os.mkdir(records)
    recorder = http_record_server.Servers(root, records, workdir)
    try:
        data = b"line one\r\n\x00\x01binary\r\n--" + bytes(range(256)) * 40
        log = os.path.join(workdir, "client log.txt")
        with open(log, "wb") as out_file:
            out_file.write(data)
        wine_log = "Z:" + log.replace("/", "\\")
        target = "http://127.0.0.1:%d/collect/" % recorder.ports["http"]

        rc, out, err = tool.run("--json", "upload-log", wine_log, target, "--jsp", "--ccid", "C-9", "--user", "me:pw:x")
        expect(rc == 0, "upload-log --jsp: %d %s %s" % (rc, out, err))
        doc = json.loads(out)
        expect(doc["ok"] and doc["bytes"] == len(data) and doc["url"] == target + "httplogupload.do", "JSON: " + out)
        name = os.path.join(records, "POST_collect_httplogupload.do")
        with open(name + ".body", "rb") as body, open(name + ".head", "rb") as head:
            received, headers = body.read(), head.read().decode("latin-1")
        expect(data in received and b'name="ccid"\r\n\r\nC-9\r\n' in received
               and b'name="username"\r\n\r\nme\r\n' in received and b'filename=client log.txt' in received,
               "JSP form lacks the options: %r" % received[:600])
        expect("Authorization: Basic " + base64.b64encode(b"me:pw:x").decode() in headers, headers)

        rc, out, err = tool.run("upload-log", wine_log, target)
        expect(rc == 0 and "upload.asp" in out, "upload-log: %d %s %s" % (rc, out, err))
        with open(os.path.join(records, "POST_collect_upload.asp.body"), "rb") as body:
            expect(b"NO CCID" in body.read(), "ASP form without the default CCID")

        rc, out, err = tool.run("upload-log", wine_log + ".missing", target)
        expect(rc == 1 and "cannot read" in err, "missing file: %d %s %s" % (rc, out, err))
    finally:
        recorder.close()
        shutil.rmtree(workdir, ignore_errors=True)


CASES = {"get_put": case_get_put, "ls_head": case_ls_head, "usage": case_usage, "ftp": case_ftp, "sftp": case_sftp, "upload_log": case_upload_log}


if __name__ == "__main__":
    sys.exit(main(CASES))
