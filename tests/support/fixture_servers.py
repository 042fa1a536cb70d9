"""Process handling shared by http_servers.py and ftp_servers.py."""
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import time

PYTHON = "/usr/bin/python3"


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_port(port, proc, what, timeout=20):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if proc is not None and proc.poll() is not None:
            raise RuntimeError("%s exited with %d" % (what, proc.returncode))
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=1):
                return
        except OSError:
            time.sleep(0.05)
    raise RuntimeError("%s did not listen on %d" % (what, port))


def retrying(start_one):
    # A free port can be taken by another program before the server binds
    # it (the server then exits): try again with another.
    for attempt in range(3):
        try:
            return start_one()
        except RuntimeError:
            if attempt == 2:
                raise


def run(args, **kwargs):
    subprocess.run(args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, **kwargs)


def spawn(args, state, name, env=None):
    """Starts a server in a session of its own, its output in STATE/NAME.out."""
    log = open(os.path.join(state, name + ".out"), "wb")
    return subprocess.Popen(args, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT,
                            start_new_session=True, cwd=state, env=env)


def write_tree(root, tree):
    """TREE (path -> bytes; a path ending in '/' is a directory) below ROOT."""
    for path, data in tree.items():
        full = os.path.join(root, path)
        os.makedirs(full if path.endswith("/") else os.path.dirname(full), exist_ok=True)
        if not path.endswith("/"):
            with open(full, "wb") as f:
                f.write(data)


def make_certificates(state):
    """A CA and a certificate it signed for localhost and 127.0.0.1, and a
    second CA that signed nothing of the server's: (ca, crt, key, other ca)."""
    ca_key, ca_crt = os.path.join(state, "ca.key"), os.path.join(state, "ca.crt")
    key, csr, crt = (os.path.join(state, n) for n in ("server.key", "server.csr", "server.crt"))
    ext = os.path.join(state, "server.ext")
    run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", ca_key, "-out", ca_crt, "-days", "2",
         "-subj", "/CN=ZyNetwork test CA", "-addext", "basicConstraints=critical,CA:TRUE",
         "-addext", "keyUsage=critical,keyCertSign,cRLSign"])
    run(["openssl", "req", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", csr, "-subj", "/CN=localhost"])
    with open(ext, "w") as f:
        f.write("subjectAltName=DNS:localhost,IP:127.0.0.1\nbasicConstraints=CA:FALSE\n"
                "keyUsage=digitalSignature,keyEncipherment\nextendedKeyUsage=serverAuth\n")
    run(["openssl", "x509", "-req", "-in", csr, "-CA", ca_crt, "-CAkey", ca_key, "-CAcreateserial", "-out", crt,
         "-days", "2", "-extfile", ext])
    other_key, other_crt = os.path.join(state, "other-ca.key"), os.path.join(state, "other-ca.crt")
    run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", other_key, "-out", other_crt,
         "-days", "2", "-subj", "/CN=ZyNetwork unrelated CA", "-addext", "basicConstraints=critical,CA:TRUE"])
    return ca_crt, crt, key, other_crt


def fresh_state(state, stop):
    """STATE_DIR made anew (what an earlier start left there stopped first)."""
    state = os.path.realpath(state)
    if os.path.exists(state):
        stop(state)
    os.makedirs(state)
    os.chmod(state, 0o755)
    return state


def write_info(state, info):
    # UTF-8 as it is: the C++ reader knows no \\u escapes.
    with open(os.path.join(state, "servers.json"), "w", encoding="utf-8") as f:
        json.dump(info, f, indent=1, ensure_ascii=False)


def stop_servers(state):
    """SIGTERM, then after 10 s SIGKILL, to STATE/servers.json's process groups;
    returns the description, or {}."""
    path = os.path.join(state, "servers.json")
    if not os.path.exists(path):
        return {}
    with open(path) as f:
        info = json.load(f)
    def signal_group(pid, number):
        try:
            os.killpg(pid, number)
            return True
        except OSError:
            return False
    for pid in info.get("pids", []):
        signal_group(pid, signal.SIGTERM)
    deadline = time.monotonic() + 10
    for pid in info.get("pids", []):
        while time.monotonic() < deadline and signal_group(pid, 0):
            time.sleep(0.05)
        signal_group(pid, signal.SIGKILL)
    return info


def remove_state(state):
    shutil.rmtree(state, ignore_errors=True)


def main(doc, name, start, stop, internal):
    """`start STATE_DIR`, `stop STATE_DIR`, or internal = (command, function)."""
    if len(sys.argv) != 3 or sys.argv[1] not in ("start", "stop", internal[0]):
        sys.stderr.write(doc)
        return 2
    command, argument = sys.argv[1:]
    try:
        {"start": start, "stop": stop, internal[0]: internal[1]}[command](argument)
    except (RuntimeError, OSError, subprocess.CalledProcessError) as error:
        if command != "start":
            raise
        detail = getattr(error, "stderr", b"") or b""
        sys.stderr.write("%s: %s %s\n" % (name, error, detail.decode("utf-8", "replace")))
        stop(argument)
        return 1
    return 0
