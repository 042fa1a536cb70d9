"""A scripted HTTP(S) server for the Windows HTTP client tests.

It serves the files below a root directory (every response carries a
Content-Length), answers a directory with an HTML listing, accepts every POST
with 200 except below "/reject/" (403), and records each request: for
METHOD and PATH it writes "<records>/<METHOD><PATH with every byte outside [A-Za-z0-9.-] as '_'>.head"
(the request line and the header lines exactly as received, CRLF-terminated)
and ".body" (the body bytes as received, read up to the announced
Content-Length or until the client stops sending).

A request in absolute form (as sent to a proxy) is served from the same
root, so the server doubles as a proxy. Below "/proxy-auth/" it answers 407
without Proxy-Authorization, below "/server-auth/" 401 without Authorization.

Listings link to the page itself ("./", "" and the absolute path), to the
parent ("../") and to the site root, so that a client that follows such links
never finishes; entries are percent-encoded, directories end in '/'.

A silent server accepts connections and never answers.
"""
import html
import http.server
import os
import re
import sys
import threading
import urllib.parse

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import hostile_server  # noqa: E402


def _record_name(method, path):
    return method + re.sub(r"[^A-Za-z0-9.-]", "_", path)


class RecordingHandler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    root = None
    records = None

    def log_message(self, format, *args):
        pass

    def _record(self, body):
        name = os.path.join(self.records, _record_name(self.command, self.path))
        head = self.requestline + "\r\n" + "".join(
            "%s: %s\r\n" % (key, value) for key, value in self.headers.items())
        with open(name + ".head", "wb") as out:
            out.write(head.encode("latin-1"))
        with open(name + ".body", "wb") as out:
            out.write(body)

    def _read_body(self):
        # rfile.read returns early only when the client stops sending.
        return self.rfile.read(int(self.headers.get("Content-Length") or 0))

    def _send(self, status, body, content_type="application/octet-stream", extra=()):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        for key, value in extra:
            self.send_header(key, value)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def _listing(self, url_path, directory):
        links = ['<a href="./">.</a>', '<a href="">here</a>', '<a href="%s">self</a>' % html.escape(url_path),
                 '<a href="../">Parent Directory</a>', '<a href="/">root</a>', '<a href="?C=N;O=D">sort</a>']
        for name in sorted(os.listdir(directory)):
            suffix = "/" if os.path.isdir(os.path.join(directory, name)) else ""
            links.append('<a href="%s%s">%s%s</a>' % (html.escape(urllib.parse.quote(name)), suffix,
                                                      html.escape(name), suffix))
        page = "<html><body><h1>Index of %s</h1>\n%s\n</body></html>\n" % (html.escape(url_path),
                                                                           "<br>\n".join(links))
        return page.encode("utf-8")

    def do_GET(self):
        self._record(b"")
        if self.path.startswith("http://") and "/proxy-auth/" in self.path and \
                self.headers.get("Proxy-Authorization") is None:
            # As a proxy that wants credentials.
            self._send(407, b"proxy credentials needed\n", "text/plain",
                       [("Proxy-Authenticate", 'Basic realm="records"')])
            return
        if "/server-auth/" in self.path and self.headers.get("Authorization") is None:
            self._send(401, b"credentials needed\n", "text/plain", [("WWW-Authenticate", 'Basic realm="records"')])
            return
        url_path = urllib.parse.urlsplit(self.path).path
        local = os.path.join(self.root, *[p for p in urllib.parse.unquote(url_path).split("/") if p])
        if os.path.isdir(local):
            if not url_path.endswith("/"):
                self._send(301, b"", extra=[("Location", url_path + "/")])
            else:
                self._send(200, self._listing(url_path, local), "text/html")
        elif os.path.isfile(local):
            with open(local, "rb") as data:
                self._send(200, data.read())
        else:
            self._send(404, b"not found\n", "text/plain")

    def do_POST(self):
        self._record(self._read_body())
        if "/reject/" in self.path:
            self._send(403, b"refused\n", "text/plain")
        else:
            self._send(200, b"OK\n", "text/plain")


class _Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True


class Servers:
    """An HTTP server, an HTTPS server (self-signed, TLS 1.2) over the same
    root and records, and a silent server, all on free loopback ports."""

    def __init__(self, root, records, workdir):
        handler = type("Handler", (RecordingHandler,), {"root": root, "records": records})
        self.http = _Server(("127.0.0.1", 0), handler)
        self.https = _Server(("127.0.0.1", 0), handler)
        self.https.socket = hostile_server.self_signed_tls12(workdir).wrap_socket(self.https.socket, server_side=True)
        self.silent = hostile_server.Listeners()
        self.silent_port = self.silent.listen(hostile_server.wait_for_close)
        self.threads = [threading.Thread(target=server.serve_forever, daemon=True)
                        for server in (self.http, self.https)]
        for thread in self.threads:
            thread.start()

    @property
    def ports(self):
        return {"http": self.http.server_address[1], "https": self.https.server_address[1],
                "silent": self.silent_port}

    def close(self):
        for server in (self.http, self.https):
            server.shutdown()
            server.server_close()
        self.silent.close()
