"""Process handling shared by the fixture scripts that start the loopback
servers of the transfer tests (http_servers.py, ftp_servers.py): free ports,
waiting for a listener, a test CA, starting and stopping the processes, and
the scripts' command line."""
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


def spawn(args, state, name):
    """Starts a server in a session of its own, its output in STATE/NAME.out."""
    log = open(os.path.join(state, name + ".out"), "wb")
    return subprocess.Popen(args, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT,
                            start_new_session=True, cwd=state)


def write_tree(root, tree):
    """Writes TREE (path -> bytes; a path ending in '/' is a directory)
    below ROOT."""
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
    with open(os.path.join(state, "servers.json"), "w") as f:
        json.dump(info, f, indent=1)


def stop_servers(state):
    """Stops the process groups listed in STATE/servers.json (SIGTERM, then
    SIGKILL after 10 s) and returns the description, or {}."""
    path = os.path.join(state, "servers.json")
    if not os.path.exists(path):
        return {}
    with open(path) as f:
        info = json.load(f)
    for pid in info.get("pids", []):
        try:
            os.killpg(pid, signal.SIGTERM)
        except OSError:
            pass
    deadline = time.monotonic() + 10
    for pid in info.get("pids", []):
        while time.monotonic() < deadline:
            try:
                os.killpg(pid, 0)
            except OSError:
                break
            time.sleep(0.05)
        try:
            os.killpg(pid, signal.SIGKILL)
        except OSError:
            pass
    return info


def remove_state(state):
    shutil.rmtree(state, ignore_errors=True)


def main(doc, name, start, stop, internal):
    """`start STATE_DIR`, `stop STATE_DIR`, or the internal command
    (internal[0]) run with its argument by internal[1]."""
    if len(sys.argv) != 3 or sys.argv[1] not in ("start", "stop", internal[0]):
        sys.stderr.write(doc)
        return 2
    if sys.argv[1] == "start":
        try:
            start(sys.argv[2])
        except (RuntimeError, OSError, subprocess.CalledProcessError) as error:
            detail = getattr(error, "stderr", b"") or b""
            sys.stderr.write("%s: %s %s\n" % (name, error, detail.decode("utf-8", "replace")))
            stop(sys.argv[2])
            return 1
    elif sys.argv[1] == "stop":
        stop(sys.argv[2])
    else:
        internal[1](sys.argv[2])
    return 0
