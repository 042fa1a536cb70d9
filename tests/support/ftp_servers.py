#!/usr/bin/python3
"""Loopback servers for the FTP and SFTP transfer tests.

usage: ftp_servers.py start STATE_DIR   start them, write STATE_DIR/servers.json
       ftp_servers.py stop STATE_DIR    stop them, remove the throwaway account and STATE_DIR
       ftp_servers.py ftpd ARGS.json    (internal) one pyftpdlib server

root/tree is listed and downloaded, root/work-* is written; pyftpdlib serves
plain FTP and explicit FTPS (TLS required); vsftpd, when installed, serves
the same root to anonymous logins (uploads, mkdir and rm under work-vsftpd);
sshd runs as its own instance with key logins for the current user and, as
root, a throwaway password account.
"""
import json
import os
import pwd
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from fixture_servers import (PYTHON, free_port, make_certificates, retrying, run, spawn, wait_port,  # noqa: E402
                             fresh_state, main as fixture_main, remove_state, stop_servers, write_info,
                             write_tree)

SSHD = "/usr/sbin/sshd"
FTP_USER = "zyftp"
FTP_PASSWORD = "ftp pass:1"
# Lists and reads only: its uploads are refused.
FTP_READER = "zyreader"
FTP_READER_PASSWORD = "reader"
SFTP_PASSWORD = "Sftp-pass-1"
KEY_PASSPHRASE = "zy key phrase"
BIG_SIZE = 100 * 1024 * 1024

# The listing tree: path -> content; directories end in '/'.
TREE = {
    "a file.txt": b"first file\n",
    "\u00fcber gr\u00f6\u00dfe.txt": b"non-ASCII name\n" * 3,
    "empty.txt": b"",
    "sub dir/": None,
    "sub dir/inner file.txt": b"inside\n",
    "sub dir/nested/": None,
    "sub dir/nested/deep.txt": b"deep down\n" * 10,
    "\u00e9t\u00e9/": None,
}
WORK_DIRS = ["work-ftp", "work-ftps", "work-sftp", "work-tool", "work-vsftpd"]
VSFTPD = "/usr/sbin/vsftpd"
# Names a URL must escape, for vsftpd.
ODD_NAMES = ["a b.txt", "\u00fc.txt", "#x", "?q", "%41"]


def make_tree(root):
    tree = os.path.join(root, "tree")
    write_tree(tree, TREE)
    with open(os.path.join(tree, "big.bin"), "wb") as f:
        for _ in range(BIG_SIZE // (1 << 20)):
            f.write(os.urandom(1 << 20))
    for d in WORK_DIRS:
        os.makedirs(os.path.join(root, d))
        os.chmod(os.path.join(root, d), 0o777)
    # Every directory on the way must be reachable for a throwaway account.
    for dirpath, dirnames, _ in os.walk(root):
        os.chmod(dirpath, 0o777 if os.path.basename(dirpath).startswith("work-") else 0o755)


def start_ftp(state, root, tls, crt, key):
    def once():
        port = free_port()
        name = "ftps" if tls else "ftp"
        path = os.path.join(state, name + ".json")
        with open(path, "w") as f:
            json.dump({"port": port, "root": root, "tls": tls, "crt": crt, "key": key}, f)
        proc = spawn([PYTHON, os.path.abspath(__file__), "ftpd", path], state, name)
        wait_port(port, proc, name)
        return proc, port
    return retrying(once)


def _handshaking_dtp_handler():
    # pyftpdlib 1.5.7 closes a TLS data connection whose handshake is still
    # running: its readable() test takes "not receiving yet" for a closed
    # peer. While the handshake runs the connection must stay readable.
    from pyftpdlib.handlers import TLS_DTPHandler

    class HandshakingDTPHandler(TLS_DTPHandler):
        def readable(self):
            return True if self._ssl_accepting else super().readable()
    return HandshakingDTPHandler


def ftpd(args_file):
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler, TLS_FTPHandler
    from pyftpdlib.servers import FTPServer
    with open(args_file) as f:
        args = json.load(f)
    authorizer = DummyAuthorizer()
    authorizer.add_user(FTP_USER, FTP_PASSWORD, args["root"], perm="elradfmwMT")
    authorizer.add_user(FTP_READER, FTP_READER_PASSWORD, args["root"], perm="elr")
    if args["tls"]:
        handler = TLS_FTPHandler
        handler.certfile = args["crt"]
        handler.keyfile = args["key"]
        handler.tls_control_required = True
        handler.tls_data_required = True
        handler.dtp_handler = _handshaking_dtp_handler()
    else:
        handler = FTPHandler
    handler.authorizer = authorizer
    handler.permit_foreign_addresses = False
    server = FTPServer(("127.0.0.1", args["port"]), handler)
    server.serve_forever()


# The user keys in a directory whose name has a space and non-ASCII letters
# (key files are opened by path on every target): JSON name -> ssh-keygen
# type, passphrase and format. ssh-keygen's default format is OpenSSH's own.
KEY_DIR = "ssh keys \u00e9t\u00e9"
USER_KEYS = {
    "keyFile": ("ecdsa", "", "PEM"),
    "phraseKeyFile": ("ecdsa", KEY_PASSPHRASE, "PEM"),
    "ecdsaKeyFile": ("ecdsa", "", None),
    "ed25519KeyFile": ("ed25519", "", None),
    "ed25519PhraseKeyFile": ("ed25519", KEY_PASSPHRASE, None),
    "rsaKeyFile": ("rsa", "", None),
}


def keygen(path, kind="ecdsa", passphrase="", key_format="PEM"):
    args = ["ssh-keygen", "-q", "-t", kind, "-N", passphrase, "-C", "zynet-test", "-f", path]
    if kind == "ecdsa":
        args += ["-b", "256"]
    if key_format:
        args += ["-m", key_format]
    run(args)
    with open(path + ".pub") as f:
        return f.read().split()[:2]


def make_password_user(info):
    # A system account with a password; only root can make one.
    if os.geteuid() != 0:
        info["sftpPasswordProblem"] = "password logins need a system account; not root"
        return
    name = "zysftp%d" % (os.getpid() % 100000)
    try:
        subprocess.run(["userdel", name], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        run(["useradd", "--no-create-home", "--home-dir", "/nonexistent", "--shell", "/usr/sbin/nologin", name])
        info["sftpPasswordUser"] = name
        run(["chpasswd"], input=("%s:%s\n" % (name, SFTP_PASSWORD)).encode())
        info["sftpPassword"] = SFTP_PASSWORD
    except (OSError, subprocess.CalledProcessError) as error:
        info["sftpPasswordProblem"] = "cannot make a system account: %s" % error


SSHD_CONFIG = """ListenAddress 127.0.0.1
Port {port}
HostKey {host_key}
PidFile {state}/sshd.pid
AuthorizedKeysFile {state}/authorized_keys
StrictModes no
UsePAM no
PasswordAuthentication yes
KbdInteractiveAuthentication no
PermitRootLogin prohibit-password
Subsystem sftp internal-sftp
LogLevel VERBOSE
"""


def start_sshd(state, info):
    if not os.path.exists(SSHD):
        info["sftpProblem"] = "%s is not installed" % SSHD
        return None
    if os.geteuid() == 0:
        os.makedirs("/run/sshd", mode=0o755, exist_ok=True)
    host_key = os.path.join(state, "ssh_host_ecdsa_key")
    host_type, host_blob = keygen(host_key)
    _, other_blob = keygen(os.path.join(state, "other_host_key"))
    key_dir = os.path.join(state, KEY_DIR)
    os.makedirs(key_dir)
    authorized = []
    for name, (kind, passphrase, key_format) in USER_KEYS.items():
        info[name] = os.path.join(key_dir, "id " + name)
        authorized.append(" ".join(keygen(info[name], kind, passphrase, key_format)))
    with open(os.path.join(state, "authorized_keys"), "w") as f:
        f.write("\n".join(authorized) + "\n")
    conf = os.path.join(state, "sshd_config")

    def start_once():
        port = free_port()
        # The right key, another key for this server, and a file that knows
        # only another server.
        for name, line in (("known_hosts", "[127.0.0.1]:%d %s %s" % (port, host_type, host_blob)),
                           ("wrong_known_hosts", "[127.0.0.1]:%d %s %s" % (port, host_type, other_blob)),
                           ("unknown_known_hosts", "[127.0.0.1]:%d %s %s" % (port + 1, host_type, host_blob))):
            with open(os.path.join(key_dir, name), "w") as f:
                f.write(line + "\n")
        with open(conf, "w") as f:
            f.write(SSHD_CONFIG.format(port=port, host_key=host_key, state=state))
        proc = spawn([SSHD, "-D", "-e", "-f", conf], state, "sshd")
        wait_port(port, proc, "sshd")
        return proc, port

    proc, port = retrying(start_once)
    info["sftp"] = port
    info["sftpKeyUser"] = pwd.getpwuid(os.geteuid()).pw_name
    info["keyPassphrase"] = KEY_PASSPHRASE
    info["knownHosts"] = os.path.join(key_dir, "known_hosts")
    info["wrongKnownHosts"] = os.path.join(key_dir, "wrong_known_hosts")
    info["unknownKnownHosts"] = os.path.join(key_dir, "unknown_known_hosts")
    make_password_user(info)
    return proc


VSFTPD_CONFIG = """listen=YES
listen_ipv6=NO
listen_address=127.0.0.1
listen_port={port}
background=NO
anonymous_enable=YES
no_anon_password=YES
anon_root={root}
local_enable=NO
write_enable=YES
anon_upload_enable=YES
anon_mkdir_write_enable=YES
anon_other_write_enable=YES
anon_umask=022
secure_chroot_dir={empty}
seccomp_sandbox=NO
isolate=NO
isolate_network=NO
utf8_filesystem=YES
xferlog_enable=NO
vsftpd_log_file={state}/vsftpd.log
"""


def start_vsftpd(state, root, info):
    # Anonymous logins chrooted to ROOT (which must not be writable by the
    # ftp account); a local account would need PAM and a login shell.
    if not os.path.exists(VSFTPD):
        info["vsftpdProblem"] = "vsftpd is not installed (Debian package vsftpd)"
        return None
    if os.geteuid() != 0:
        info["vsftpdProblem"] = "vsftpd runs as root only"
        return None
    try:
        pwd.getpwnam("ftp")
    except KeyError:
        info["vsftpdProblem"] = "vsftpd's anonymous account 'ftp' does not exist"
        return None
    empty = os.path.join(state, "vsftpd-empty")
    os.makedirs(empty, mode=0o755)
    write_tree(os.path.join(root, "odd"), {name: name.encode() * 3 for name in ODD_NAMES})
    conf = os.path.join(state, "vsftpd.conf")

    def once():
        port = free_port()
        with open(conf, "w") as f:
            f.write(VSFTPD_CONFIG.format(port=port, root=root, empty=empty, state=state))
        proc = spawn([VSFTPD, conf], state, "vsftpd")
        wait_port(port, proc, "vsftpd")
        return proc, port
    proc, info["vsftpd"] = retrying(once)
    return proc


def start(state):
    state = fresh_state(state, stop)
    root = os.path.join(state, "root")
    info = {"pids": [], "state": state, "root": root, "user": FTP_USER, "password": FTP_PASSWORD,
            "readUser": FTP_READER, "readPassword": FTP_READER_PASSWORD, "bigSize": BIG_SIZE}
    try:
        make_tree(root)
        ca, crt, key, other = make_certificates(state)
        info["caFile"] = ca
        info["wrongCaFile"] = other
        for tls in (False, True):
            proc, info["ftps" if tls else "ftp"] = start_ftp(state, root, tls, crt, key)
            info["pids"].append(proc.pid)
        for proc in (start_sshd(state, info), start_vsftpd(state, root, info)):
            if proc:
                info["pids"].append(proc.pid)
    finally:
        write_info(state, info)
    return info


def stop(state):
    info = stop_servers(state)
    if info.get("sftpPasswordUser"):
        subprocess.run(["userdel", info["sftpPasswordUser"]], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    remove_state(state)


if __name__ == "__main__":
    sys.exit(fixture_main(__doc__, "ftp_servers", start, stop, ("ftpd", ftpd)))
