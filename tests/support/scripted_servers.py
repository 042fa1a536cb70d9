#!/usr/bin/python3
"""Scripted loopback HTTP servers for the Windows HTTP client tests.

usage: scripted_servers.py [--emulator PROGRAM] [--records] -- TEST_PROGRAM [ARGS...]

CTest runs this as the test's launcher (Wine cannot start Linux programs):
it starts the servers on free loopback ports, runs the program (under
PROGRAM) with their ports in ZYNET_TEST_SERVERS ("control=P http=P ..."),
stops them and exits with the program's status.

Servers: http (keep-alive, answers from scripts), https (the same over TLS
1.2, self-signed), silent (reads, never answers), proxy (forwards to
loopback; asks for Basic credentials once PROXYAUTH is set), control, and
those of hostile_server.py.

Control commands, one a connection:
  CONTENT <path> <length>\\n<bytes>  the body GET <path> returns on 200
  SCRIPT <path> <token>[,...]  answers to the next requests, the last one
          repeating: a status; basic=USER:PASSWORD (200 with these Basic
          credentials, else 401); bogus (401 offering an unknown scheme)
  PROXYAUTH <user:password>
  LOG     every request: server, connection number, method, path, headers,
          body; each field "<length> <bytes>"
  COUNT <server>  connections accepted (silent-requests: heads read)
"""
import argparse
import base64
import http.client
import http.server
import os
import socketserver
import subprocess
import sys
import tempfile
import threading
import urllib.parse

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import hostile_server  # noqa: E402
import http_record_server  # noqa: E402


class State:
    def __init__(self):
        self.lock = threading.Lock()
        self.content = {}
        self.scripts = {}
        self.log = []
        self.connections = {}
        self.proxy_auth = None

    def next_token(self, path):
        with self.lock:
            tokens = self.scripts.get(path)
            if not tokens:
                return "200"
            return tokens.pop(0) if len(tokens) > 1 else tokens[0]

    def record(self, server, connection, method, path, headers, body):
        with self.lock:
            self.log.append((server, connection, method, path, headers, body))

    def connected(self, server):
        with self.lock:
            self.connections[server] = self.connections.get(server, 0) + 1
            return self.connections[server]


STATE = State()


def basic(credentials):
    return "Basic " + base64.b64encode(credentials.encode()).decode()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_label = "http"

    def setup(self):
        super().setup()
        self.connection_number = STATE.connected(self.server_label)

    def log_message(self, *args):
        pass

    def read_body(self):
        length = int(self.headers.get("Content-Length", "0") or "0")
        return self.rfile.read(length) if length > 0 else b""

    def answer(self, status, body=b"", headers=()):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if body:
            self.wfile.write(body)

    def read_and_record(self):
        body = self.read_body()
        STATE.record(self.server_label, self.connection_number, self.command, self.path, str(self.headers), body)
        return body

    def handle_any(self):
        self.read_and_record()
        token = STATE.next_token(urllib.parse.urlsplit(self.path).path)
        if token.startswith("basic="):
            if self.headers.get("Authorization") != basic(token[len("basic="):]):
                return self.answer(401, b"denied", [("WWW-Authenticate", 'Basic realm="zy"')])
            token = "200"
        if token == "bogus":
            return self.answer(401, b"denied", [("WWW-Authenticate", 'Bogus realm="zy"')])
        status = int(token)
        if status == 200 and self.command == "GET":
            with STATE.lock:
                content = STATE.content.get(self.path, b"")
            return self.answer(200, content)
        self.answer(status, b"" if status == 200 else ("status %d" % status).encode())

    do_GET = do_PUT = do_POST = handle_any


class TlsHandler(Handler):
    server_label = "https"


class ProxyHandler(Handler):
    server_label = "proxy"

    def handle_any(self):
        body = self.read_and_record()
        with STATE.lock:
            wanted = STATE.proxy_auth
        if wanted and self.headers.get("Proxy-Authorization") != basic(wanted):
            return self.answer(407, b"proxy denied", [("Proxy-Authenticate", 'Basic realm="proxy"')])
        target = urllib.parse.urlsplit(self.path)
        if target.scheme != "http" or target.hostname not in ("127.0.0.1", "localhost", "::1"):
            return self.answer(502, b"loopback http targets only")
        headers = {k: v for k, v in self.headers.items() if k.lower() not in ("proxy-authorization", "connection",
                                                                              "proxy-connection")}
        upstream = http.client.HTTPConnection(target.hostname, target.port or 80, timeout=30)
        try:
            path = target.path + ("?" + target.query if target.query else "")
            upstream.request(self.command, path or "/", body=body, headers=headers)
            reply = upstream.getresponse()
            payload = reply.read()
            passed = [(k, v) for k, v in reply.getheaders()
                      if k.lower() not in ("content-length", "connection", "transfer-encoding", "keep-alive")]
            self.answer(reply.status, payload, passed)
        finally:
            upstream.close()

    do_GET = do_PUT = do_POST = handle_any


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True
    allow_reuse_address = True


class TlsServer(Server):
    def __init__(self, address, handler, context):
        super().__init__(address, handler)
        self.context = context

    def get_request(self):
        sock, address = super().get_request()
        sock.settimeout(30)
        return self.context.wrap_socket(sock, server_side=True), address


class SilentHandler(socketserver.BaseRequestHandler):
    def handle(self):
        STATE.connected("silent")
        self.request.settimeout(60)
        seen = b""
        try:
            while True:
                data = self.request.recv(65536)
                if not data:
                    break
                seen += data
                # Each complete request head counts once.
                while b"\r\n\r\n" in seen:
                    seen = seen.split(b"\r\n\r\n", 1)[1]
                    STATE.connected("silent-requests")
        except OSError:
            pass


def as_bytes(value):
    return value if isinstance(value, bytes) else str(value).encode("utf-8", "surrogateescape")


class ControlHandler(socketserver.StreamRequestHandler):
    def handle(self):
        words = self.rfile.readline().decode().split() or [""]
        reply = b"OK\n"
        with STATE.lock:
            if words[0] == "CONTENT":
                STATE.content[words[1]] = self.rfile.read(int(words[2]))
            elif words[0] == "SCRIPT":
                STATE.scripts[words[1]] = words[2].split(",")
            elif words[0] == "PROXYAUTH":
                STATE.proxy_auth = words[1]
            elif words[0] == "LOG":
                reply = b"".join(b"%d %s" % (len(v), v) for entry in STATE.log for v in map(as_bytes, entry))
            elif words[0] == "COUNT":
                reply = b"%d\n" % STATE.connections.get(words[1], 0)
            else:
                reply = b"ERROR unknown command\n"
        self.wfile.write(reply)


def start(server):
    thread = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True)
    thread.start()
    return server


def records_env(env, directory, hostile_ports, emulated):
    """Starts the servers of http_record_server.py and names their folders
    and ports (and the hostile ones) in ZYHTTP_TEST_* variables of ENV."""
    root, records, work = (os.path.join(directory, name) for name in ("root", "records", "recorder"))
    for path in (root, records, work):
        os.mkdir(path)
    recorder = http_record_server.Servers(root, records, work)
    env.update({"ZYHTTP_TEST_%s_PORT" % name.upper(): str(port)
                for name, port in list(recorder.ports.items()) + list(hostile_ports.items())})
    for name, path in (("ZYHTTP_TEST_ROOT", root), ("ZYHTTP_TEST_RECORDS", records)):
        env[name] = "Z:" + path.replace("/", "\\") if emulated else path
    return recorder


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--emulator", default="")
    parser.add_argument("--records", action="store_true", help="add the recording servers (ZYHTTP_TEST_*)")
    parser.add_argument("command", nargs=argparse.REMAINDER)
    options = parser.parse_args()
    command = options.command[1:] if options.command[:1] == ["--"] else options.command
    if not command:
        parser.error("no test program given")
    command = ([options.emulator] if options.emulator else []) + command

    env = dict(os.environ)
    # The clients under test must not find a proxy of the machine's own.
    for name in ("http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "no_proxy", "NO_PROXY", "all_proxy"):
        env.pop(name, None)
    if "--gtest_list_tests" in command:
        return subprocess.run(command, env=env, stdin=subprocess.DEVNULL).returncode

    with tempfile.TemporaryDirectory(prefix="zynet-http-") as directory:
        loopback = ("127.0.0.1", 0)
        servers = {
            "http": start(Server(loopback, Handler)),
            "https": start(TlsServer(loopback, TlsHandler, hostile_server.self_signed_tls12(directory))),
            "silent": start(socketserver.ThreadingTCPServer(loopback, SilentHandler)),
            "proxy": start(Server(loopback, ProxyHandler)),
            "control": start(socketserver.ThreadingTCPServer(loopback, ControlHandler)),
        }
        for server in servers.values():
            server.daemon_threads = True
        hostile = hostile_server.HostileServers(directory)
        env["ZYNET_TEST_SERVERS"] = " ".join(["%s=%d" % (name, server.server_address[1])
                                              for name, server in servers.items()] +
                                             ["%s=%d" % (name.lower(), port) for name, port in hostile.ports.items()])
        recorder = records_env(env, directory, hostile.ports, options.emulator) if options.records else None
        try:
            return subprocess.run(command, env=env, stdin=subprocess.DEVNULL).returncode
        finally:
            if recorder:
                recorder.close()
            hostile.close()
            for server in servers.values():
                server.shutdown()
                server.server_close()


if __name__ == "__main__":
    sys.exit(main())
