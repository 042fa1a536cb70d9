#!/usr/bin/python3
"""A loopback HTTP server that misbehaves on command, for the hostile-peer tests.

HostileServers(workdir) starts the servers in threads of the calling process
(.ports, .ca_file, .close()). Also what the other loopback servers share:
Listeners, tls12_context, self_signed_tls12, wait_for_close.

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
import os
import socket
import ssl
import struct
import subprocess
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


def wait_for_close(conn):
    """Silence: reads and keeps the connection open until the client leaves."""
    conn.settimeout(WAIT_LIMIT)
    try:
        while conn.recv(65536):
            pass
    except (OSError, ssl.SSLError):
        pass


def _reset(conn):
    conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


# The answers sent whole, after which the connection closes.
_WHOLE = {
    "/short-body": b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789",
    "/long-body": b"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123456789" + b"y" * 4096,
    # Says that it closes: a client that reused the connection would race the close.
    "/redirect-loop": b"HTTP/1.1 302 Found\r\nLocation: /redirect-loop\r\nContent-Length: 0\r\nConnection: close\r\n\r\n",
}


def _answer(conn, path):
    path = path.split("?", 1)[0]
    if path == "/reset-mid-body":
        conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 1048576\r\n\r\n" + CHUNK)
        time.sleep(0.2)
        _reset(conn)
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
            wait_for_close(conn)
        return
    conn.sendall(_WHOLE.get(path, b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello"))


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
    wait_for_close(conn)


def _run(args):
    subprocess.run(args, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def tls12_context(crt, key):
    """A server context for TLS 1.2 only: what Wine's Schannel speaks."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.minimum_version = context.maximum_version = ssl.TLSVersion.TLSv1_2
    context.load_cert_chain(crt, key)
    return context


def self_signed_tls12(directory):
    """tls12_context with a self-signed certificate for localhost made in DIRECTORY."""
    key, crt = os.path.join(directory, "self-signed.key"), os.path.join(directory, "self-signed.crt")
    _run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", crt, "-days", "2",
          "-subj", "/CN=localhost"])
    return tls12_context(crt, key)


def _make_certificates(workdir):
    ca_key, ca_crt = os.path.join(workdir, "hostile-ca.key"), os.path.join(workdir, "hostile-ca.crt")
    key, csr, crt = (os.path.join(workdir, "hostile." + n) for n in ("key", "csr", "crt"))
    ext = os.path.join(workdir, "hostile.ext")
    _run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", ca_key, "-out", ca_crt, "-days", "2",
         "-subj", "/CN=ZyNetwork hostile test CA", "-addext", "basicConstraints=critical,CA:TRUE",
         "-addext", "keyUsage=critical,keyCertSign,cRLSign"])
    _run(["openssl", "req", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", csr, "-subj", "/CN=" + OTHER_NAME])
    with open(ext, "w") as f:
        f.write("subjectAltName=DNS:%s\nbasicConstraints=CA:FALSE\n"
                "keyUsage=digitalSignature,keyEncipherment\nextendedKeyUsage=serverAuth\n" % OTHER_NAME)
    _run(["openssl", "x509", "-req", "-in", csr, "-CA", ca_crt, "-CAkey", ca_key, "-CAcreateserial", "-out", crt,
         "-days", "2", "-extfile", ext])
    return ca_crt, crt, key


class Listeners:
    def __init__(self):
        self.listeners = []

    def listen(self, handler):
        """Runs HANDLER on each connection to a new loopback listener, in a
        thread of its own, and closes the connection after it; the port."""
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


class HostileServers(Listeners):
    def __init__(self, workdir):
        super().__init__()
        self.ca_file, crt, key = _make_certificates(workdir)
        self.context = tls12_context(crt, key)
        self.ports = {
            "hostile": self.listen(_serve_http),
            "hostileTls": self.listen(self._serve_tls),
            "hostileHalfway": self.listen(lambda c: _serve_halfway(c, self.context)),
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
