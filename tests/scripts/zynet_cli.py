#!/usr/bin/env python3
"""Checks the zynet tool's real output, one group of related cases per test.

usage: zynet_cli.py --zynet PATH [--emulator PROGRAM] CASE

Traffic stays on loopback; names come from /etc/hosts.
"""
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

from zynet_tool import Skip, expect, expect_run, main


# The tour's steps that need nothing but loopback; they must pass everywhere.
ESSENTIAL_STEPS = ["socket pair echo", "TCP echo over IPv4", "selector over many sockets", "resolve localhost",
                   "interface list"]


def curl_beside(tool):
    """Whether the platform's curl library can be loaded: on Windows RKCurl.dll beside the tool."""
    return not tool.windows or os.path.exists(os.path.join(os.path.dirname(tool.command[-1]), "RKCurl.dll"))


def case_tour(tool):
    env = dict(os.environ)
    env.pop("ZYNET_CURL_LIBRARY", None)
    doc = tool.json("tour", env=env)
    expect(doc["command"] == "tour" and doc["ok"] is True, "tour not ok: %r" % doc)
    steps = {step["name"]: step for step in doc["steps"]}
    # Transfers: libcurl everywhere, and the Windows clients on Windows.
    transfers = ["transfers over libcurl"] + (["transfers over WinHTTP", "transfers over WinINet"] if tool.windows else [])
    count = 8 + len(transfers)
    expect(len(steps) == count, "expected %d steps, got %r" % (count, list(steps)))
    for step in doc["steps"]:
        expect(step["status"] in ("ok", "skipped"), "step failed: %s" % json.dumps(step, indent=2))
    for name in ESSENTIAL_STEPS + transfers[1:] + (transfers[:1] if curl_beside(tool) else []):
        expect(steps[name]["status"] == "ok", "step %r not ok: %r" % (name, steps[name]))
    curl = steps["transfers over libcurl"]
    if curl["status"] == "ok":
        expect(re.match(r"^libcurl/\d+\.\d+\.\d+ from .*(RKCurl\.dll|libRKCurl\.so|libcurl\.so\.4), "
                        r"2 GET, 1 PUT, 1 HEAD, \d+ bytes checked$", curl["detail"]), "curl step: %r" % curl)
    expect("127.0.0.1" in steps["resolve localhost"]["detail"], "localhost not 127.0.0.1")
    expect(doc["passed"] + doc["skipped"] == count and doc["failed"] == 0, "counts wrong: %r" % doc)
    # Without a command the tour is the default job, printed for people.
    # Without a curl library the curl step is skipped and says why.
    missing = dict(os.environ, ZYNET_CURL_LIBRARY="zynet-no-such-curl-library")
    out, _ = expect_run(tool, [], 0, r"^zynet tour", env=missing)
    lines = [line for line in out.splitlines() if line.strip()]
    steps = [line for line in lines if re.match(r"^\s+\[( ok |skip|FAIL)\] ", line)]
    expect(len(steps) == count, "expected %d step lines:\n%s" % (count, out))
    expect(re.search(r"^\s+\[skip\] transfers over libcurl\s+no libcurl could be loaded: Failed to load libcurl$",
                     out, re.M), "no curl skip line:\n" + out)
    expect(re.match(r"^%d steps: \d+ ok, \d+ skipped, 0 failed$" % count, lines[-1]), "bad summary: " + lines[-1])


def case_addr(tool):
    expect_run(tool, ["addr", "127.0.0.1"], 0, r"^family:\s+2 \(IPv4\)$")
    path = "/tmp/zynet-cli.sock"
    for args, want in ((["::1", "-p", "8080"], dict(family=23, familyName="IPv6", port=8080, length=28, text="::1")),
                       (["10.20.30.40", "-p0"], dict(length=16, port=0)),
                       ([path, "-p", "99"], dict(family=1, path=path, length=2 + len(path) + 1, port=0))):
        addr = tool.json("addr", *args)["address"]
        expect(all(addr[key] == value for key, value in want.items()), "addr %s: %r" % (args, addr))
    # Not an address: one line, the error's stack with --verbose, exit 1;
    # bad options: exit 2.
    _, err = expect_run(tool, ["addr", "not-an-address"], 1, None, r"^zynet addr: 'not-an-address' is not a numeric")
    expect("#0 " not in err, "the stack without --verbose:\n" + err)
    expect_run(tool, ["--verbose", "addr", "not-an-address"], 1, None, r"^#0 .*CZyIPAddr::SetAddressString")
    doc = tool.json("addr", "1.2.3.4.5", expect_rc=1)
    expect(doc["ok"] is False and doc["error"]["code"] != 0 and doc["error"]["stack"], "no error: %r" % doc)
    expect_run(tool, ["addr", "127.0.0.1", "-p", "65536"], 2, None, r"^usage: zynet \[--json\] addr ")
    expect_run(tool, ["addr", "a", "b"], 2, None, r"^usage: ")


def case_json_escaping(tool):
    if tool.windows:
        raise Skip("raw argument bytes do not pass through the emulator unchanged")
    # A path is taken byte for byte, so it carries quotes, control
    # characters and bytes that are not UTF-8 into the JSON text; those
    # come out as U+FFFD.
    raw = b'/tmp/q"b\\s\tt\nn\x01\xff\xc3\xa9'
    rc, out, err = tool.run_raw([b"--json", b"addr", raw])
    expect(rc == 0, "exit %d: %r" % (rc, err))
    doc = json.loads(out.decode("utf-8"))
    expected = '/tmp/q"b\\s\tt\nn\x01\ufffd\u00e9'
    expect(doc["input"] == expected and doc["address"]["path"] == expected,
           "path did not survive: %r" % doc["input"])


def case_resolve(tool):
    expect_run(tool, ["resolve", "localhost", "-4"], 0, r"^IPv4\s+127\.0\.0\.1$")
    doc = tool.json("resolve", "localhost", "--all", "-4")
    texts = [a["text"] for a in doc["addresses"]]
    expect("127.0.0.1" in texts and all(a["family"] == 2 for a in doc["addresses"]), "bad list: %r" % texts)
    doc = tool.json("resolve", "127.0.0.1")
    expect([a["text"] for a in doc["addresses"]] == ["127.0.0.1"], "literal not resolved: %r" % doc)
    # A name with a slash is a local socket path, never looked up.
    doc = tool.json("resolve", "some/dir/sock")
    expect(doc["addresses"][0]["family"] == 1, "path not taken as Unix address: %r" % doc)
    expect_run(tool, ["resolve", "localhost", "-4", "-6"], 2, None, r"exclude each other")
    expect_run(tool, ["resolve"], 2, None, r"^usage: zynet \[--json\] resolve NAME")


def case_reverse(tool):
    out, _ = expect_run(tool, ["reverse", "127.0.0.1"], 0)
    name = out.strip()
    expect(name and " " not in name, "no host name: %r" % out)
    # The name maps back to the address.
    doc = tool.json("resolve", name, "--all", "-4")
    expect("127.0.0.1" in [a["text"] for a in doc["addresses"]], "%s does not map back to 127.0.0.1" % name)
    expect_run(tool, ["reverse", "300.1.1.1", "--verbose"], 1, None, r"^#0 ")
    expect_run(tool, ["reverse"], 2)


def case_cidr(tool):
    expect_run(tool, ["cidr", "10.1.2.3", "10.0.0.0/8"], 0, r"^10\.1\.2\.3 is within 10\.0\.0\.0/8$")
    expect_run(tool, ["cidr", "10.1.2.3", "10.0.0.0/16"], 0, r"^10\.1\.2\.3 is not within 10\.0\.0\.0/16$")
    expect(tool.json("cidr", "10.1.2.3", "10.1.2.3/32")["within"] is True, "/32 of itself not within")
    expect(tool.json("cidr", "192.168.1.1", "192.168.0.0/24")["within"] is False, "/24 neighbour within")
    expect_run(tool, ["--verbose", "cidr", "10.1.2.3", "10.0.0.0"], 1, None,
               r"^#0 Win32 error 87: \"Invalid CIDR block: \[10\.0\.0\.0\]\.\"")
    expect_run(tool, ["cidr", "10.1.2.3"], 2, None, r"^usage: zynet \[--json\] cidr ADDR BLOCK")


def case_mask(tool):
    for prefix, mask in (("1", "128.0.0.0"), ("20", "255.255.240.0"), ("32", "255.255.255.255")):
        expect_run(tool, ["mask", prefix], 0, r"^/%s = %s$" % (prefix, re.escape(mask)))
    expect(tool.json("mask", "16")["mask"] == "255.255.0.0", "bad JSON mask")
    for bad in ("0", "33", "24x", "99999999999999999999"):
        expect_run(tool, ["mask", bad], 2, None, r"^usage: zynet \[--json\] mask PREFIX")


def case_probe(tool):
    stacks = tool.json("probe")["stacks"]
    expect(set(stacks) == {"IPv4", "IPv6", "Unix"} and all(isinstance(v, bool) for v in stacks.values()),
           "bad stacks: %r" % stacks)
    expect(stacks["IPv4"] is True, "no IPv4 stack on a machine with loopback")
    if not tool.windows:
        expect(stacks["Unix"] is True, "Linux has Unix-domain sockets")
    out, _ = expect_run(tool, ["probe"], 0, r"^IPv4\s+present$")
    expect(re.search(r"^Unix\s+(present|absent)$", out, re.M), "no Unix line:\n" + out)
    expect_run(tool, ["probe", "extra"], 2)


def case_ifaces(tool):
    doc = tool.json("ifaces", "--macs", "--names")
    loopback = [i for i in doc["interfaces"] if i["address"] == "127.0.0.1"]
    expect(loopback and loopback[0]["network"] == "127.0.0.0" and loopback[0]["family"] == "IPv4",
           "no loopback entry: %r" % doc["interfaces"])
    expect(all(re.match(r"^[0-9a-f]{2}(:[0-9a-f]{2})*$", m) for m in doc["macs"]), "bad MACs: %r" % doc["macs"])
    expect(isinstance(doc["names"], list), "no names list")
    expect_run(tool, ["ifaces"], 0, r"^IPv4\s+127\.0\.0\.1\s+127\.0\.0\.0$")
    expect_run(tool, ["ifaces", "--mac"], 2, None, r"unknown option --mac")


def case_blacklist(tool):
    with tempfile.TemporaryDirectory() as tmp:
        listing = os.path.join(tmp, "blacklist.txt")
        with open(listing, "w") as f:
            f.write("127.0.0.1\n\n127.0.0.2\n/tmp/zynet-blocked.sock\n")
        doc = tool.json("blacklist", listing, "127.0.0.1", "127.0.0.9")
        entries = [e["address"] for e in doc["entries"]]
        expect(entries == ["127.0.0.1", "127.0.0.2", "/tmp/zynet-blocked.sock"], "entries: %r" % entries)
        checks = {c["input"]: c for c in doc["checks"]}
        expect(checks["127.0.0.1"]["blacklisted"] is True and checks["127.0.0.1"]["attempts"] == 1,
               "127.0.0.1: %r" % checks)
        expect(checks["127.0.0.9"]["blacklisted"] is False, "127.0.0.9: %r" % checks)
        expect_run(tool, ["blacklist", listing, "127.0.0.2"], 0, r"^127\.0\.0\.2: blacklisted \(attempts 1\)$")
        missing = os.path.join(tmp, "missing.txt")
        expect_run(tool, ["blacklist", missing], 1, None, r"Failed to open file, FileName=")
    expect_run(tool, ["blacklist"], 2, None, r"^usage: zynet \[--json\] blacklist FILE")


def case_ping(tool):
    for bad in (["ping"], ["ping", "127.0.0.1", "-c", "0"], ["ping", "127.0.0.1", "-s", "abc"],
                ["ping", "127.0.0.1", "-W"], ["ping", "127.0.0.1", "-x"]):
        expect_run(tool, bad, 2, None, r"^usage: zynet \[--json\] ping HOST")
    rc, out, err = tool.run("ping", "127.0.0.1", "-c", "2", "-W", "2")
    if rc != 0 and "10013" in err:
        raise Skip("ICMP sockets are not permitted here:\n" + err)
    expect(re.search(r"^PING 127\.0\.0\.1 \(127\.0\.0\.1\) 56\(84\) bytes of data\.$", out, re.M), "header:\n" + out)
    # One line per cycle. A raw ICMP socket also sees other programs' echo
    # traffic on this host; the library reports such a cycle as a foreign
    # reply, so that outcome is accepted as long as one reply is ours.
    cycles = re.findall(r"^(?:64 bytes from 127\.0\.0\.1: icmp_seq=(\d) ttl=\d+ time=\d+ ms"
                        r"|no reply for icmp_seq=(\d): foreign reply)$", out, re.M)
    expect([a or b for a, b in cycles] == ["1", "2"], "cycle lines:\n" + out)
    received = sum(1 for a, _ in cycles if a)
    if received == 0:
        raise Skip("other programs' ICMP traffic took every cycle:\n" + out)
    expect(rc == 0, "ping failed (%d):\n%s%s" % (rc, out, err))
    expect(re.search(r"^--- 127\.0\.0\.1 ping statistics ---$", out, re.M), "no statistics:\n" + out)
    expect(re.search(r"^2 packets transmitted, %d received, %d%% packet loss, time \d+ms$"
                     % (received, (2 - received) * 50), out, re.M), "summary:\n" + out)


def case_curl_version(tool):
    # A file that exists nowhere: the override is the only file tried.
    missing = dict(os.environ, ZYNET_CURL_LIBRARY="zynet-no-such-curl-library")
    expect_run(tool, ["curl-version"], 1, None, r"^zynet curl-version: Failed to load libcurl$", env=missing)
    doc = tool.json("curl-version", expect_rc=1, env=missing)
    expect(doc["loaded"] is False and doc["file"] == "" and doc["version"] == "Failed to load libcurl"
           and doc["error"]["what"] == "Failed to load libcurl", "missing file: %r" % doc)
    expect_run(tool, ["curl-version", "extra"], 2, None, r"^usage: zynet \[--json\] curl-version$")
    # A transfer without libcurl says so, and what to do.
    expect_run(tool, ["get", "http://127.0.0.1:9/x"], 1, None,
               r"^zynet get: cannot set up the request for http://127\.0\.0\.1:9/x: libcurl could not be "
               r"loaded \((install libcurl4|RKCurl\.dll belongs beside ZyNetwork\.dll), or name a libcurl file "
               r"in ZYNET_CURL_LIBRARY\)$", env=missing)

    # The platform's own file: RKCurl.dll beside ZyNetwork.dll, or the
    # system's libcurl on Linux.
    env = dict(os.environ)
    env.pop("ZYNET_CURL_LIBRARY", None)
    if tool.windows and not os.path.exists(os.path.join(os.path.dirname(tool.command[-1]), "RKCurl.dll")):
        expect_run(tool, ["curl-version"], 1, None, r"Failed to load libcurl", env=env)
        raise Skip("RKCurl.dll is not beside ZyNetwork.dll (the install step builds it)")
    doc = tool.json("curl-version", env=env)
    expect(doc["loaded"] is True and doc["version"].startswith("libcurl/"), "not libcurl: %r" % doc)
    # Both platforms' files speak SSH (on Windows through libssh2 built in).
    expect({"http", "https", "ftp", "ftps", "sftp", "scp"} <= set(doc["protocols"]),
           "protocols: %r" % doc["protocols"])
    expected_file = "RKCurl.dll" if tool.windows else ("libRKCurl.so", "libcurl.so.4")
    expect(doc["file"].endswith(expected_file), "file: %r" % doc["file"])
    expect_run(tool, ["curl-version"], 0, r"^version:   libcurl/\d+\.\d+\.\d+", env=env)


def case_usage(tool):
    out, _ = expect_run(tool, ["--help"], 0, r"^usage: zynet")
    commands = ["tour", "resolve", "reverse", "addr", "ifaces", "cidr", "mask", "probe", "blacklist", "ping",
                "curl-version", "proxy"]
    for command in commands:
        expect(re.search(r"^  %s\s" % command, out, re.M), "%s missing from --help" % command)
        expect_run(tool, [command, "--help"], 0, r"^usage: zynet \[--json\] %s" % command)
    expect_run(tool, ["frobnicate"], 2, None, r"unknown command 'frobnicate'")
    expect_run(tool, ["--version"], 0, r"^zynet \d+\.\d+\.\d+$")
    # Odd arguments end with a status, never a crash. Only commands that do
    # no name look-ups get free text, so nothing here asks a name server.
    long_text = "9" * 5000
    odd = [["addr", long_text], ["addr", "/" + "x" * 300], ["addr", ""], ["addr", "--", "-p"],
           ["cidr", "1.2.3.4", "1.2.3.4/"], ["cidr", "::1", "::/0"], ["ping", "127.0.0.1", "-c", long_text], ["--"]]
    for args in odd:
        code, _, err = tool.run(*args)
        expect(code in (0, 1, 2), "zynet %r ended with %d:\n%s" % ([a[:40] for a in args], code, err))


def help_table(tool):
    """The commands and the options of each as --help shows them: {"": global options, command: options}."""
    out, _ = expect_run(tool, ["--help"], 0)
    head, commands = out.split("\ncommands:\n")
    table = {"": option_names(head)}
    for command in re.findall(r"^  (\S+)", commands.split("\n\n")[0], re.M):
        text, _ = expect_run(tool, [command, "--help"], 0)
        table[command] = option_names(text.split("\noptions:\n")[1].split("\n\n")[0]) if "\noptions:\n" in text else []
    return table


def option_names(text):
    names = []
    for title in re.findall(r"^  (-.{26})", text + " " * 28, re.M):
        names += [name.split(" ")[0] for name in title.strip().split(", ")]
    return names


def case_help_clients(tool):
    """--help of a transfer command names the clients that --client accepts here."""
    _, err = expect_run(tool, ["get", "http://127.0.0.1:1/x", "--client", "nosuch"], 2)
    accepted = re.search(r"available: ([^)]*)\)", err).group(1).split(", ")
    expect(accepted == (["curl", "winhttp", "wininet"] if tool.windows else ["curl"]), "clients: %r" % accepted)
    for command in ("get", "put", "ls"):
        out, _ = expect_run(tool, [command, "--help"], 0)
        shown = re.search(r"^  --client NAME\s+the client that transfers: (.*)$", out, re.M).group(1)
        expect(re.findall(r"\b(curl|winhttp|wininet)\b", shown) == accepted, "%s --help: %r" % (command, shown))


def case_man_completion(tool):
    """Every command and option of --help is in the manual page and completes in bash."""
    table = help_table(tool)
    expect(len(table) > 15 and {"-d", "--client", "--retry"} <= set(table["get"]) and "--json" in table[""],
           "--help lists too little: %r" % table)
    man = expect_run(tool, ["--man"], 0)[0]
    plain = re.sub(r"\\f[BIR]|\\&", "", man).replace("\\-", "-").replace("\\e", "\\")
    sections = {"": plain.split("\n.SH OPTIONS\n")[1].split("\n.SH COMMANDS\n")[0]}
    for part in plain.split("\n.SS ")[1:]:
        name, body = part.split("\n", 1)
        sections[name] = body.split("\n.SH ")[0]
    expect(sorted(sections) == sorted(table), "man page commands %r, --help %r" % (sorted(sections), sorted(table)))
    for command, options in table.items():
        for option in options:
            expect(re.search(r"^(\S+, )*%s\b" % re.escape(option), sections[command], re.M),
                   "the man page lacks %s of %r" % (option, command))
    with tempfile.TemporaryDirectory() as tmp:
        page = os.path.join(tmp, "zynet.1")
        with open(page, "w") as f:
            f.write(man)
        if shutil.which("man"):
            proc = subprocess.run(["man", "--warnings", "-l", page], capture_output=True, text=True, timeout=60,
                                  env=dict(os.environ, MANWIDTH="80"))
            expect(proc.returncode == 0 and proc.stderr == "" and "--continue" in proc.stdout,
                   "man -l: %d %s" % (proc.returncode, proc.stderr))
        else:
            print("man is not installed: the page is not rendered")
        os.mkdir(os.path.join(tmp, "subdir"))
        script = os.path.join(tmp, "zynet.bash")
        with open(script, "w") as f:
            f.write(expect_run(tool, ["--completion", "bash"], 0)[0])
        # One completion per line: what the line before it asks for.
        queries = [["g"], ["get", "--client", ""], ["get", "-d", os.path.join(tmp, "")]]
        queries += [[command] for command in table if command] + [[option] for option in table[""]]
        queries += [[command, option] for command, options in table.items() if command for option in options]
        lines = ["source %s" % shlex.quote(script), "complete -p zynet"]
        for words in queries:
            lines.append("COMP_WORDS=(zynet %s); COMP_CWORD=%d; _zynet; echo \"${COMPREPLY[*]}\""
                         % (" ".join(shlex.quote(w) for w in words), len(words)))
        proc = subprocess.run(["bash", "--norc", "--noprofile", "-c", "\n".join(lines)], capture_output=True,
                              text=True, timeout=60)
        replies = proc.stdout.split("\n")
        expect(proc.returncode == 0 and replies[0].startswith("complete ") and len(replies) == len(queries) + 2,
               "bash: %d\n%s%s" % (proc.returncode, proc.stdout, proc.stderr))
        clients = " ".join(["curl", "winhttp", "wininet"] if tool.windows else ["curl"])
        expect(replies[1:4] == ["get", clients, os.path.join(tmp, "subdir")],
               "completions of g, --client, -d: %r" % replies[1:4])
        for words, reply in zip(queries[3:], replies[4:]):
            expect(words[-1] in reply.split(" "), "zynet %s<TAB> gives %r" % (" ".join(words), reply))


def case_proxy(tool):
    expect_run(tool, ["proxy", "--pac", "http://127.0.0.1:1/x.pac"], 2, None, r"--pac needs a URL")
    if not tool.windows:
        expect_run(tool, ["proxy"], 1, None, r"not available on this platform")
        return
    # WinHTTP's default configuration comes from http_proxy when the registry
    # has none. (PAC look-ups: WinHttpTest.ProxyDiscovery.)
    env = {k: v for k, v in os.environ.items() if "proxy" not in k.lower()}
    env["http_proxy"] = "http://localhost:3128"
    doc = tool.json("proxy", env=env)
    expect(doc["default"]["proxy"] == "localhost:3128", "default proxy from http_proxy: %r" % doc)
    expect(isinstance(doc["currentUser"]["autoDetect"], bool), "bad current-user record: %r" % doc)


CASES = {name[len("case_"):]: fn for name, fn in globals().items() if name.startswith("case_")}


if __name__ == "__main__":
    sys.exit(main(CASES))
