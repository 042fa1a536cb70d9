#!/usr/bin/python3
"""A loopback HTTP server that misbehaves on command, for the hostile-peer tests.

usage: hostile_server.py WORKDIR   start the servers, write WORKDIR/hostile.json
                                   ({"hostile": P, "hostileTls": P,
                                   "hostileHalfway": P, "hostileCaFile": PATH})
                                   and run until SIGTERM or SIGINT.
As a module: HostileServers(workdir) starts the same servers in threads of
the calling process (.ports, .ca_file, .close()).

Three listeners on 127.0.0.1:
  hostile         plain HTTP; the request path picks the misbehaviour:
    /reset-mid-body   Content-Length 1 MiB, 64 KiB sent, then a reset (RST)
    /short-body       Content-Length 100, 10 bytes sent, then close
    /long-body        Content-Length 10, 10 bytes plus 4 KiB more, then close
    /bad-chunked      chunked; one good chunk, then a size line "zz"
    /endless-header   a header line that never ends (up to 256 MiB)
    /trickle-headers  the whole answer one byte a second
    /trickle-body     the head at once, then the body "hello" one byte a second
    /huge-stall       Content-Length 10 GiB, 64 KiB sent, then silence
    /huge-close       Content-Length 10 GiB, 64 KiB sent, then close
    /redirect-loop    302 to itself, for ever
    anything else     200 with the body "hello"
  hostileTls      TLS 1.2 with a certificate for another host name
                  ("elsewhere.invalid") from a CA of its own (hostileCaFile);
                  behind the handshake it serves as "hostile" does.
  hostileHalfway  reads the client's hello, sends the first half of a real
                  server handshake flight and then stays silent.
A connection that has to wait gives up after two minutes at most.
"""
import json
import os
import signal
import socket
import ssl
import struct
import subprocess
import sys
import threading
import time

CHUNK = b"x" * 65536
OTHER_NAME = "elsewhere.invalid"
WAIT_LIMIT = 120


def _read_head(conn):
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = conn.recv(65536)
        if not chunk or len(data) > 1 << 20:
            return None
        data += chunk
    line = data.split(b"\r\n", 1)[0].decode("latin-1").split(" ")
    return line[1] if len(line) > 1 else "/"


def _wait_for_close(conn):
    # Silence: keep the connection open until the client leaves.
    conn.settimeout(WAIT_LIMIT)
    try:
        while conn.recv(65536):
            pass
    except (OSError, ssl.SSLError):
        pass


def _reset(conn):
    conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def _answer(conn, path):
    path = path.split("?", 1)[0]
    if path == "/reset-mid-body":
        conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 1048576\r\n\r\n" + CHUNK)
        time.sleep(0.2)
        _reset(conn)
        return
    if path == "/short-body":
        conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789")
        return
    if path == "/long-body":
        conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123456789" + b"y" * 4096)
        return
    if path == "/bad-chunked":
        conn.sendall(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\nzz\r\nnot a chunk\r\n")
        time.sleep(0.2)
        return
    if path == "/endless-header":
        conn.sendall(b"HTTP/1.1 200 OK\r\nX-Endless: ")
        for _ in range(4096):
            conn.sendall(b"a" * 65536)
        return
    if path == "/trickle-headers":
        conn.settimeout(WAIT_LIMIT)
        for byte in b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\nX-Slow: " + b"s" * 200 + b"\r\n\r\nhello":
            conn.sendall(bytes([byte]))
            time.sleep(1)
        return
    if path == "/trickle-body":
        conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n")
        for byte in b"hello":
            time.sleep(1)
            conn.sendall(bytes([byte]))
        return
    if path in ("/huge-stall", "/huge-close"):
        conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 10737418240\r\n\r\n" + CHUNK)
        if path == "/huge-stall":
            _wait_for_close(conn)
        return
    if path == "/redirect-loop":
        conn.sendall(b"HTTP/1.1 302 Found\r\nLocation: /redirect-loop\r\nContent-Length: 0\r\n\r\n")
        return
    conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello")


def _serve_http(conn):
    # One request per connection, so a redirect loop opens connection after
    # connection as a client would see it with any server that closes.
    path = _read_head(conn)
    if path is not None:
        _answer(conn, path)


def _serve_halfway(conn, context):
    conn.settimeout(WAIT_LIMIT)
    incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
    engine = context.wrap_bio(incoming, outgoing, server_side=True)
    flight = b""
    while not flight:
        data = conn.recv(65536)
        if not data:
            return
        incoming.write(data)
        try:
            engine.do_handshake()
        except ssl.SSLWantReadError:
            pass
        flight = outgoing.read()
    conn.sendall(flight[:len(flight) // 2])
    _wait_for_close(conn)


def _make_certificates(workdir):
    ca_key, ca_crt = os.path.join(workdir, "hostile-ca.key"), os.path.join(workdir, "hostile-ca.crt")
    key, csr, crt = (os.path.join(workdir, "hostile." + n) for n in ("key", "csr", "crt"))
    ext = os.path.join(workdir, "hostile.ext")

    def run(args):
        subprocess.run(args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", ca_key, "-out", ca_crt, "-days", "2",
         "-subj", "/CN=ZyNetwork hostile test CA", "-addext", "basicConstraints=critical,CA:TRUE",
         "-addext", "keyUsage=critical,keyCertSign,cRLSign"])
    run(["openssl", "req", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", csr, "-subj", "/CN=" + OTHER_NAME])
    with open(ext, "w") as f:
        f.write("subjectAltName=DNS:%s\nbasicConstraints=CA:FALSE\n"
                "keyUsage=digitalSignature,keyEncipherment\nextendedKeyUsage=serverAuth\n" % OTHER_NAME)
    run(["openssl", "x509", "-req", "-in", csr, "-CA", ca_crt, "-CAkey", ca_key, "-CAcreateserial", "-out", crt,
         "-days", "2", "-extfile", ext])
    return ca_crt, crt, key


class HostileServers:
    def __init__(self, workdir):
        self.ca_file, crt, key = _make_certificates(workdir)
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        # TLS 1.2: what Wine's Schannel speaks.
        self.context.minimum_version = ssl.TLSVersion.TLSv1_2
        self.context.maximum_version = ssl.TLSVersion.TLSv1_2
        self.context.load_cert_chain(crt, key)
        self.listeners = []
        self.ports = {
            "hostile": self._listen(lambda c: _serve_http(c)),
            "hostileTls": self._listen(self._serve_tls),
            "hostileHalfway": self._listen(lambda c: _serve_halfway(c, self.context)),
        }

    def _serve_tls(self, conn):
        conn.settimeout(WAIT_LIMIT)
        try:
            tls = self.context.wrap_socket(conn, server_side=True)
        except (OSError, ssl.SSLError):
            return
        try:
            _serve_http(tls)
        finally:
            tls.close()

    def _listen(self, handler):
        listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        listener.bind(("127.0.0.1", 0))
        listener.listen(32)
        self.listeners.append(listener)

        def accept_loop():
            while True:
                try:
                    conn, _ = listener.accept()
                except OSError:
                    return

                def run_one(c=conn):
                    try:
                        handler(c)
                    except (OSError, ssl.SSLError):
                        pass
                    finally:
                        c.close()
                threading.Thread(target=run_one, daemon=True).start()
        threading.Thread(target=accept_loop, daemon=True).start()
        return listener.getsockname()[1]

    def close(self):
        for listener in self.listeners:
            try:
                listener.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            listener.close()


def main():
    if len(sys.argv) != 2:
        sys.stderr.write(__doc__)
        return 2
    workdir = os.path.realpath(sys.argv[1])
    signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM, signal.SIGINT])
    servers = HostileServers(workdir)
    info = dict(servers.ports, hostileCaFile=servers.ca_file)
    temp = os.path.join(workdir, "hostile.json.tmp")
    with open(temp, "w") as f:
        json.dump(info, f)
    os.rename(temp, os.path.join(workdir, "hostile.json"))
    signal.sigwait([signal.SIGTERM, signal.SIGINT])
    servers.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
