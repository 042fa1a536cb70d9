#!/usr/bin/python3
"""Loopback servers for the HTTP transfer tests.

usage: http_servers.py start STATE_DIR   start every server, write STATE_DIR/servers.json
       http_servers.py stop STATE_DIR    stop the servers started there and remove STATE_DIR
       http_servers.py misbehave STATE_DIR    (internal) the scripted servers

Each server listens on a free port of 127.0.0.1 with its own configuration
and files under STATE_DIR:
- nginx over HTTP and HTTPS (a CA and a server certificate made here with
  openssl): static files, autoindex listings, WebDAV PUT/DELETE/MKCOL under
  /dav/, basic authentication under /auth/, a redirect, 404 and 503;
- Python's http.server serving the listing tree;
- Apache's httpd with mod_autoindex on three ports (FancyIndexing with
  HTMLTable, FancyIndexing alone, the plain list), when apache2 is installed;
- lighttpd with mod_dirlisting, when lighttpd is installed;
- tinyproxy with basic authentication;
- in one more process, scripted servers for what nginx will not do: an echo
  of the request (method and body), a connection that stays silent, and the
  hostile servers of hostile_server.py (plain, TLS with a certificate for
  another name, a TLS handshake that stops halfway).
"""
import json
import os
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from fixture_servers import (PYTHON, free_port, make_certificates, retrying, spawn, wait_port,  # noqa: E402
                             fresh_state, main as fixture_main, remove_state, stop_servers, write_info,
                             write_tree)
import hostile_server  # noqa: E402

USER = "zyuser"
PASSWORD = "zy pass:1"
PROXY_USER = "proxyuser"
PROXY_PASSWORD = "proxypass"
BIG_SIZE = 1 << 30
UTC = dict(os.environ, TZ="UTC")

# nginx's root. The listing tree list/: names with spaces and non-ASCII
# letters, an empty file, directories; sizes stay under 1 KiB so that every
# listing shows them in bytes.
WWW = {
    "list/a file.txt": b"first file\n",
    "list/\u00fcber gr\u00f6\u00dfe.txt": b"non-ASCII name\n" * 3,
    "list/empty.txt": b"",
    "list/percent%sign & more.txt": b"odd characters\n",
    "list/sub dir/inner.txt": b"inside\n",
    # Longer than the 50 characters nginx shows of a name.
    "list/a long file name that listing pages cut short when they show it.txt": b"long\n",
    "list/\u00e9t\u00e9/": None,
    "hello.txt": b"hello from nginx\n",
    "dav/": None,
    "many/": None,
    "auth/secret.txt": b"authorised bytes\n",
    "big/": None,
    # Sizes that pages round ("3.0G", "1.2M"); the large ones are made sparse.
    "sizes/small.txt": b"eleven byte",
}
SPARSE = {"sizes/big 3G.iso": 3 << 30, "sizes/mid.bin": 1258291}


def make_tree(root):
    www = os.path.join(root, "www")
    write_tree(www, WWW)
    # nginx's workers may run as another user than its master (root).
    os.chmod(os.path.join(www, "dav"), 0o777)
    # Sparse: zeros that take no disk space.
    for path, size in dict(SPARSE, **{"big/1GiB.bin": BIG_SIZE}).items():
        with open(os.path.join(www, path), "wb") as f:
            f.truncate(size)
    return www


def nginx_config(state, www, http_port, https_port, crt, key):
    htpasswd = os.path.join(state, "htpasswd")
    hashed = subprocess.run(["openssl", "passwd", "-apr1", PASSWORD], check=True, capture_output=True,
                            text=True).stdout.strip()
    with open(htpasswd, "w") as f:
        f.write("%s:%s\n" % (USER, hashed))
    temp = os.path.join(state, "nginx-temp")
    os.makedirs(temp, exist_ok=True)
    os.chmod(temp, 0o777)
    conf = """
worker_processes 1;
error_log {state}/nginx-error.log warn;
pid {state}/nginx.pid;
events {{ worker_connections 256; }}
http {{
    access_log off;
    # /many/: each request with nginx's serial number of its connection, so a
    # test can count the connections that several downloads took.
    log_format connections '$connection $request_uri $status';
    default_type application/octet-stream;
    sendfile on;
    client_body_temp_path {temp}/body;
    proxy_temp_path {temp}/proxy;
    fastcgi_temp_path {temp}/fastcgi;
    uwsgi_temp_path {temp}/uwsgi;
    scgi_temp_path {temp}/scgi;
    server {{
        listen 127.0.0.1:{http_port};
        listen 127.0.0.1:{https_port} ssl;
        server_name localhost;
        ssl_certificate {crt};
        ssl_certificate_key {key};
        ssl_protocols TLSv1.2 TLSv1.3;
        root {www};
        location /list/ {{ autoindex on; }}
        location /sizes/ {{ autoindex on; }}
        location /rounded/ {{ alias {www}/sizes/; autoindex on; autoindex_exact_size off; }}
        location /dav/ {{
            autoindex on;
            dav_methods PUT DELETE MKCOL;
            create_full_put_path on;
            client_max_body_size 0;
        }}
        location /auth/ {{
            auth_basic "zynetwork tests";
            auth_basic_user_file {htpasswd};
        }}
        location /many/ {{ access_log {state}/many-access.log connections; }}
        location = /redirect {{ return 302 /hello.txt; }}
        location = /unavailable {{ return 503; }}
    }}
}}
""".format(state=state, temp=temp, http_port=http_port, https_port=https_port, crt=crt, key=key, www=www,
           htpasswd=htpasswd)
    return write_config(state, "nginx.conf", conf)


def apache_config(state, www, ports):
    # One virtual host per port: FancyIndexing with HTMLTable, FancyIndexing
    # alone, and the plain list of no IndexOptions.
    modules = "/usr/lib/apache2/modules"
    options = ["FancyIndexing VersionSort HTMLTable NameWidth=* DescriptionWidth=* Charset=UTF-8",
               "FancyIndexing NameWidth=* Charset=UTF-8", None]
    hosts = "".join("""
Listen 127.0.0.1:{port}
<VirtualHost 127.0.0.1:{port}>
    {index}
</VirtualHost>
""".format(port=port, index="<Location />\n        IndexOptions %s\n    </Location>" % o if o else "")
                    for port, o in zip(ports, options))
    conf = """
ServerRoot "{state}"
PidFile "{state}/apache.pid"
ErrorLog "{state}/apache-error.log"
Mutex file:{state}
LoadModule mpm_event_module {m}/mod_mpm_event.so
LoadModule authz_core_module {m}/mod_authz_core.so
LoadModule dir_module {m}/mod_dir.so
LoadModule mime_module {m}/mod_mime.so
LoadModule autoindex_module {m}/mod_autoindex.so
LoadModule alias_module {m}/mod_alias.so
ServerName localhost
DocumentRoot "{www}"
TypesConfig /etc/mime.types
StartServers 1
ServerLimit 1
MaxRequestWorkers 25
<Directory "{www}">
    Options Indexes
    Require all granted
</Directory>
{hosts}
""".format(state=state, m=modules, www=www, hosts=hosts)
    return write_config(state, "apache.conf", conf)


def lighttpd_config(state, www, port):
    conf = """
server.document-root = "{www}"
server.bind = "127.0.0.1"
server.port = {port}
server.pid-file = "{state}/lighttpd.pid"
server.errorlog = "{state}/lighttpd-error.log"
server.modules = ("mod_dirlisting")
dir-listing.activate = "enable"
dir-listing.encoding = "utf-8"
""".format(state=state, www=www, port=port)
    return write_config(state, "lighttpd.conf", conf)


def tinyproxy_config(state, port):
    conf = """
Port {port}
Listen 127.0.0.1
Allow 127.0.0.1
BasicAuth {user} {password}
Timeout 60
MaxClients 20
LogFile "{state}/tinyproxy.log"
LogLevel Info
PidFile "{state}/tinyproxy.pid"
DisableViaHeader Yes
""".format(port=port, user=PROXY_USER, password=PROXY_PASSWORD, state=state)
    return write_config(state, "tinyproxy.conf", conf)


def write_config(state, name, text):
    path = os.path.join(state, name)
    with open(path, "w") as f:
        f.write(text)
    return path


def start(state):
    state = fresh_state(state, stop)
    info = {"pids": [], "user": USER, "password": PASSWORD, "proxyUser": PROXY_USER,
            "proxyPassword": PROXY_PASSWORD, "bigSize": BIG_SIZE, "state": state}

    def launch(name, args, env=None, **ports):
        # Starts a server and waits until it listens on each port of PORTS.
        proc = spawn(args, state, name, env)
        info["pids"].append(proc.pid)
        for key, port in ports.items():
            wait_port(port, proc, name)
            info[key] = port
        return proc

    try:
        info["www"] = www = make_tree(state)
        info["manyLog"] = os.path.join(state, "many-access.log")
        info["caFile"], crt, key, info["wrongCaFile"] = make_certificates(state)
        http_port, https_port = free_port(), free_port()
        conf = nginx_config(state, www, http_port, https_port, crt, key)
        launch("nginx", ["nginx", "-p", state, "-c", conf, "-g", "daemon off;"], http=http_port, https=https_port)

        def start_python_http():
            port = free_port()
            launch("http.server", [PYTHON, "-m", "http.server", str(port), "--bind", "127.0.0.1", "--directory",
                                   os.path.join(www, "list")], pythonHttp=port)
        retrying(start_python_http)

        # Apache and lighttpd write listing dates in local time: UTC here.
        if os.path.exists("/usr/sbin/apache2"):
            ports = [free_port() for _ in range(3)]
            launch("apache2", ["/usr/sbin/apache2", "-f", apache_config(state, www, ports), "-DFOREGROUND"],
                   env=UTC, apache=ports[0], apacheFancy=ports[1], apachePlain=ports[2])
        else:
            info["apacheProblem"] = "apache2 is not installed (Debian package apache2)"
        if os.path.exists("/usr/sbin/lighttpd"):
            def start_lighttpd():
                port = free_port()
                launch("lighttpd", ["/usr/sbin/lighttpd", "-D", "-f", lighttpd_config(state, www, port)], env=UTC,
                       lighttpd=port)
            retrying(start_lighttpd)
        else:
            info["lighttpdProblem"] = "lighttpd is not installed (Debian package lighttpd)"
        port = free_port()
        launch("tinyproxy", ["tinyproxy", "-d", "-c", tinyproxy_config(state, port)], proxy=port)

        proc = launch("scripted", [PYTHON, os.path.abspath(__file__), "misbehave", state])
        scripted = os.path.join(state, "scripted.json")
        deadline = time.monotonic() + 30
        while not os.path.exists(scripted):
            if proc.poll() is not None or time.monotonic() > deadline:
                raise RuntimeError("the scripted servers did not start")
            time.sleep(0.05)
        with open(scripted) as f:
            info.update(json.load(f))
    finally:
        write_info(state, info)
    return info


def stop(state):
    stop_servers(state)
    remove_state(state)


# ---- the scripted server -----------------------------------------------------

def read_request(conn):
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = conn.recv(65536)
        if not chunk:
            return None, None, b"", b""
        data += chunk
    head, body = data.split(b"\r\n\r\n", 1)
    lines = head.decode("latin-1").split("\r\n")
    method, target = lines[0].split(" ")[:2]
    headers = {}
    for line in lines[1:]:
        if ":" in line:
            k, v = line.split(":", 1)
            headers[k.strip().lower()] = v.strip()
    length = int(headers.get("content-length", "0"))
    while len(body) < length:
        chunk = conn.recv(65536)
        if not chunk:
            break
        body += chunk
    return method, target, body, head


def handle_echo(conn):
    # Answers with the method, the target and the body it received; under
    # /headers with the request's header lines instead.
    while True:
        method, target, body, head = read_request(conn)
        if method is None:
            return
        if target.startswith("/headers"):
            payload = head + b"\r\n"
        else:
            payload = ("%s %s\n" % (method, target)).encode() + body
        conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: %d\r\n\r\n"
                     % len(payload) + payload)


def misbehave(state):
    # Listening before the ports are published: the file appears whole.
    signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM, signal.SIGINT])
    servers = hostile_server.HostileServers(state)
    info = dict(servers.ports, hostileCaFile=servers.ca_file, echo=servers.listen(handle_echo),
                silent=servers.listen(hostile_server.wait_for_close))
    with open(os.path.join(state, "scripted.json.tmp"), "w") as f:
        json.dump(info, f)
    os.rename(os.path.join(state, "scripted.json.tmp"), os.path.join(state, "scripted.json"))
    signal.sigwait([signal.SIGTERM, signal.SIGINT])
    servers.close()


if __name__ == "__main__":
    sys.exit(fixture_main(__doc__, "http_servers", start, stop, ("misbehave", misbehave)))
