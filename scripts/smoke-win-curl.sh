#!/usr/bin/env bash
# Hand-run smoke test of the Windows libcurl (build/win-deps/RKCurl.dll from
# scripts/build-win-curl.sh) under Wine: a small mingw program loads the DLL
# with LoadLibrary, prints curl_version() and the protocols, and downloads
# from loopback servers that this script starts on free ports:
#   - HTTP:  Python's http.server;
#   - HTTPS: Python's http.server wrapped in TLS 1.2 (Wine's Schannel speaks
#            TLS 1.2 only) with a self-signed certificate, verification off;
#   - SFTP and SCP, when the DLL lists them: OpenSSH's sshd as its own
#            instance (own host key and config), public-key login as root.
# Each download is compared byte for byte with the served file.
#   bash scripts/smoke-win-curl.sh [path/to/RKCurl.dll]
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)
dll=${1:-$repo/build/win-deps/RKCurl.dll}
inc=$(dirname "$dll")/include
[ -f "$dll" ] || { echo "no $dll: run scripts/build-win-curl.sh first" >&2; exit 2; }
[ -f "$inc/curl/curl.h" ] || { echo "no curl headers in $inc" >&2; exit 2; }
py=/usr/bin/python3

tmp=$(mktemp -d /tmp/zynet-wincurl-smoke.XXXXXX)
pids=()
export WINEDEBUG=-all
export WINEPREFIX=${WINEPREFIX:-$repo/build/win-deps/wineprefix}
cleanup() {
  local p
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wineserver -k 2>/dev/null || true
  rm -rf "$tmp"
}
trap cleanup EXIT

free_port() { $py -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
wait_port() {
  local i
  for i in $(seq 1 100); do
    $py -c "import socket,sys; socket.create_connection(('127.0.0.1',$1),0.2).close()" 2>/dev/null && return 0
    sleep 0.1
  done
  echo "server on port $1 did not start" >&2; return 1
}

x86_64-w64-mingw32-gcc-posix -O1 -Wall -I"$inc" scripts/smoke-win-curl.c -o "$tmp/smoke.exe" -static
cp "$dll" "$tmp/RKCurl.dll"

mkdir -p "$tmp/www"
head -c 3000000 /dev/urandom >"$tmp/www/blob.bin"
echo "hello from loopback" >"$tmp/www/hello.txt"
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$tmp/key.pem" -out "$tmp/cert.pem" \
  -days 2 -subj /CN=localhost >/dev/null 2>&1

http_port=$(free_port)
$py -m http.server --bind 127.0.0.1 "$http_port" --directory "$tmp/www" >"$tmp/http.log" 2>&1 &
pids+=($!)
https_port=$(free_port)
cat >"$tmp/https.py" <<'EOF'
import functools, http.server, ssl, sys
port, root, cert, key = int(sys.argv[1]), sys.argv[2], sys.argv[3], sys.argv[4]
handler = functools.partial(http.server.SimpleHTTPRequestHandler, directory=root)
srv = http.server.ThreadingHTTPServer(("127.0.0.1", port), handler)
ctx = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
ctx.minimum_version = ctx.maximum_version = ssl.TLSVersion.TLSv1_2
ctx.load_cert_chain(cert, key)
srv.socket = ctx.wrap_socket(srv.socket, server_side=True)
srv.serve_forever()  # files are sent with Content-Length
EOF
$py "$tmp/https.py" "$https_port" "$tmp/www" "$tmp/cert.pem" "$tmp/key.pem" >"$tmp/https.log" 2>&1 &
pids+=($!)
wait_port "$http_port"; wait_port "$https_port"

# A warm-up start keeps Wine's background services off our pipes.
/usr/lib/wine/wine64 cmd /c exit </dev/null >/dev/null 2>&1 || true

w() { (cd "$tmp" && /usr/lib/wine/wine64 smoke.exe "$@" </dev/null); }

fail=0
check() { # served-file downloaded-file label
  if cmp -s "$1" "$2"; then echo "OK   $3: $(stat -c %s "$2") bytes match"
  else echo "FAIL $3: bytes differ or missing"; fail=1; fi
}

info=$(w 2>&1 | tr -d '\r')
echo "$info"
w "http://127.0.0.1:$http_port/blob.bin=>http.bin" \
  "https://127.0.0.1:$https_port/blob.bin=>https.bin" \
  "https://localhost:$https_port/hello.txt=>hello.bin" | tr -d '\r' || fail=1
check "$tmp/www/blob.bin" "$tmp/http.bin" "HTTP"
check "$tmp/www/blob.bin" "$tmp/https.bin" "HTTPS (Schannel, TLS 1.2)"
check "$tmp/www/hello.txt" "$tmp/hello.bin" "HTTPS by name (localhost)"

if grep -q '^protocols:.* sftp' <<<"$info"; then
  # sshd as its own instance: own host key and config, loopback, high port.
  ssh_port=$(free_port)
  mkdir -p -m 0755 /run/sshd
  # OpenSSH's default algorithms; Ed25519 keys in OpenSSH's own format.
  ssh-keygen -q -t ed25519 -N '' -f "$tmp/host_ed25519" >/dev/null
  ssh-keygen -q -t ed25519 -N '' -f "$tmp/client_ed25519" >/dev/null
  cp "$tmp/client_ed25519.pub" "$tmp/authorized_keys"
  cat >"$tmp/sshd_config" <<EOF
ListenAddress 127.0.0.1
Port $ssh_port
HostKey $tmp/host_ed25519
PidFile $tmp/sshd.pid
AuthorizedKeysFile $tmp/authorized_keys
StrictModes no
UsePAM no
PermitRootLogin prohibit-password
PasswordAuthentication no
Subsystem sftp internal-sftp
EOF
  /usr/sbin/sshd -D -e -f "$tmp/sshd_config" >"$tmp/sshd.log" 2>&1 &
  pids+=($!)
  wait_port "$ssh_port"
  (cd "$tmp" && SMOKE_TIMEOUT=20 SMOKE_USER="$(id -un):" SMOKE_KEY=client_ed25519 SMOKE_PUBKEY=client_ed25519.pub \
     /usr/lib/wine/wine64 smoke.exe \
       "sftp://127.0.0.1:$ssh_port$tmp/www/blob.bin=>sftp.bin" \
       "scp://127.0.0.1:$ssh_port$tmp/www/hello.txt=>scp.bin" </dev/null) | tr -d '\r' || fail=1
  check "$tmp/www/blob.bin" "$tmp/sftp.bin" "SFTP (public key)"
  check "$tmp/www/hello.txt" "$tmp/scp.bin" "SCP (public key)"
else
  echo "SKIP SFTP/SCP: this RKCurl.dll has no SSH"
fi

if [ $fail -ne 0 ]; then echo "smoke-win-curl: FAILED"; exit 1; fi
echo "smoke-win-curl: all transfers matched"
