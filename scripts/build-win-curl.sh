#!/usr/bin/env bash
# Builds the Windows x86-64 libcurl that ZyNetwork.dll loads as "RKCurl.dll"
# (see shared DESIGN section 8 and docs/PLATFORMS.md, "The Windows libcurl").
#
# Debian ships no libcurl for mingw, so this cross-builds Debian's own curl
# source package (apt-get source curl: 7.88.1 with Debian's patches) with
# mingw-w64, CMake and Ninja: a shared library with Schannel for TLS and SSPI,
# no OpenSSL, libssh2, zlib, nghttp2, IDN, PSL or LDAP.
#
# ZYNET_WIN_CURL_SSH=1 (an experiment, off by default) also builds Debian's
# libssh2 1.10 source with its WinCNG back-end and links it in statically for
# SFTP/SCP. It builds, but under Wine 8 no SSH key exchange completes (Wine's
# bcrypt has no "DH" provider and no raw RSA for libssh2's fallback), so the
# default DLL has no SSH; docs/PLATFORMS.md, "The Windows libcurl", has the
# details. Use another ZYNET_WIN_DEPS_DIR for that experiment.
#
# Everything lives under build/win-deps/ (never in tracked files):
#   build/win-deps/RKCurl.dll       the result
#   build/win-deps/RKCurl.stamp     what it was built from; a second run with
#                                   the DLL and a matching stamp does nothing
#   build/win-deps/include/curl/    curl's headers of that source
#   build/win-deps/src/             the Debian source packages
#
# Run as root or with sudo (like scripts/install-deps.sh): it may add a
# deb-src entry, run apt-get update and install packages.
#   bash scripts/build-win-curl.sh [--force]
# Prints the DLL's path on its last line.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

out=${ZYNET_WIN_DEPS_DIR:-$repo/build/win-deps}
dll=$out/RKCurl.dll
stamp=$out/RKCurl.stamp
want_ssh=${ZYNET_WIN_CURL_SSH:-0}
# Bump when the recipe below changes so that cached DLLs are rebuilt.
recipe=1
force=0
[ "${1:-}" = "--force" ] && force=1

log() { echo "build-win-curl: $*" >&2; }

# ---- fast path: nothing to do when the cached DLL matches the recipe -------
if [ $force -eq 0 ] && [ -s "$dll" ] && [ -f "$stamp" ] \
   && grep -qx "recipe=$recipe" "$stamp" && grep -qx "want_ssh=$want_ssh" "$stamp"; then
  log "cached: $(grep '^version=' "$stamp" | cut -d= -f2-), $(grep '^ssh=' "$stamp" | cut -d= -f2-)"
  echo "$dll"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO=sudo; fi
export DEBIAN_FRONTEND=noninteractive

# ---- packages --------------------------------------------------------------
packages=(dpkg-dev cmake ninja-build gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64)
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
apt_updated=0
if [ ${#missing[@]} -gt 0 ]; then
  log "installing ${missing[*]}"
  $SUDO apt-get update -qq
  apt_updated=1
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# ---- a deb-src entry for the machine's Debian source ------------------------
# Copied from the existing entry (same URIs, Suites, Components, Signed-By),
# only when no deb-src entry exists at all.
has_deb_src() {
  local f
  for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -f "$f" ] && grep -Eq '^[[:space:]]*deb-src[[:space:]]' "$f" && return 0
  done
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] && grep -Eiq '^[[:space:]]*Types:.*deb-src' "$f" && return 0
  done
  return 1
}

srclist=/etc/apt/sources.list.d/zynet-deb-src.sources
if ! has_deb_src; then
  entry=""
  if [ -f /etc/apt/sources.list.d/debian.sources ]; then
    # deb822: every stanza of type deb becomes one of type deb-src.
    entry=$(awk '
      BEGIN { RS = ""; ORS = "\n\n" }
      {
        n = split($0, lines, "\n"); isdeb = 0; body = ""
        for (i = 1; i <= n; i++) {
          l = lines[i]
          if (l ~ /^[Tt]ypes:/) { if (l ~ /[[:space:]]deb([[:space:]]|$)/) isdeb = 1; continue }
          if (l ~ /^#/) continue
          if (l ~ /^(URIs|Suites|Components|Signed-By|Architectures|Enabled):/ || l ~ /^[[:space:]]/)
            body = body l "\n"
        }
        if (isdeb && body != "") print "Types: deb-src\n" body
      }' /etc/apt/sources.list.d/debian.sources)
  elif [ -f /etc/apt/sources.list ]; then
    entry=$(sed -n 's/^[[:space:]]*deb[[:space:]]/deb-src /p' /etc/apt/sources.list)
    srclist=/etc/apt/sources.list.d/zynet-deb-src.list
  fi
  if [ -z "$entry" ]; then
    log "no Debian source entry found to copy a deb-src entry from" ; exit 1
  fi
  log "adding $srclist"
  {
    echo "# Added by ZyNetwork's scripts/build-win-curl.sh: Debian's source packages"
    echo "# (apt-get source curl) for the Windows libcurl cross-build."
    printf '%s\n' "$entry"
  } | $SUDO tee "$srclist" >/dev/null
  $SUDO apt-get update -qq
  apt_updated=1
fi

# ---- source packages ---------------------------------------------------------
mkdir -p "$out/src"
# Unpacks a source package's upstream tarball and Debian tarball and applies
# Debian's patches (what dpkg-source -x does for a "3.0 (quilt)" package).
# Used only when apt-get fetched and checked both tarballs (their SHA-256 sums
# are in the signed Sources index) but could not fetch the .dsc itself.
unpack_without_dsc() {
  local pkg=$1 orig deb dir p
  orig=$(ls "$out/src/${pkg}"_*.orig.tar.* 2>/dev/null | grep -v '\.asc$' | sort | tail -1)
  deb=$(ls "$out/src/${pkg}"_*.debian.tar.* 2>/dev/null | sort | tail -1)
  [ -n "$orig" ] && [ -n "$deb" ] || return 1
  log "unpacking ${orig##*/} + ${deb##*/} and applying debian/patches"
  dir=$(tar tf "$orig" | head -1 | cut -d/ -f1)
  rm -rf "${out:?}/src/$dir"
  tar xf "$orig" -C "$out/src" && tar xf "$deb" -C "$out/src/$dir" || return 1
  if [ -f "$out/src/$dir/debian/patches/series" ]; then
    while read -r p _; do
      case "$p" in ''|'#'*) continue ;; esac
      patch -d "$out/src/$dir" -p1 -s -N <"$out/src/$dir/debian/patches/$p" || return 1
    done <"$out/src/$dir/debian/patches/series"
  fi
  case "$dir" in "$pkg-"[0-9]*) ;; *) mv "$out/src/$dir" "$out/src/$pkg-unpacked" ;; esac
}

# Unpacks a source package into $out/src once; prints its directory.
fetch_source() {
  local pkg=$1 dir
  dir=$(find "$out/src" -maxdepth 1 -type d -name "$pkg-[0-9]*" | sort | tail -1)
  if [ -n "$dir" ] && [ -f "$dir/.zynet-unpacked" ]; then echo "$dir"; return 0; fi
  log "apt-get source $pkg"
  if ! (cd "$out/src" && apt-get source -qq "$pkg" >/dev/null 2>"$out/src/$pkg.log"); then
    if [ $apt_updated -eq 0 ]; then
      $SUDO apt-get update -qq; apt_updated=1
    fi
    if ! (cd "$out/src" && apt-get source -qq "$pkg" >/dev/null 2>"$out/src/$pkg.log"); then
      grep -E '^(E|Err):' "$out/src/$pkg.log" >&2 || cat "$out/src/$pkg.log" >&2
      unpack_without_dsc "$pkg" || return 1
    fi
  fi
  dir=$(find "$out/src" -maxdepth 1 -type d -name "$pkg-[0-9]*" | sort | tail -1)
  [ -n "$dir" ] || { log "apt-get source $pkg unpacked nothing"; return 1; }
  touch "$dir/.zynet-unpacked"
  echo "$dir"
}

curl_src=$(fetch_source curl)
curl_deb_version=$(cd "$curl_src" && dpkg-parsechangelog -S Version)
log "curl source $curl_deb_version in ${curl_src#$repo/}"

toolchain=$repo/cmake/mingw-w64-x86_64.cmake
jobs=$(nproc 2>/dev/null || echo 2)
# The toolchain file's -static keeps mingw's runtime out of the DLL's imports;
# no timestamp makes rebuilds byte-identical.
ldflags="-static -static-libgcc -Wl,--no-insert-timestamp"

# ---- libssh2 (WinCNG, static) for SFTP/SCP -----------------------------------
ssh_state="none (ZYNET_WIN_CURL_SSH=0)"
ssh_args=(-DCURL_USE_LIBSSH2=OFF)
if [ "$want_ssh" = "1" ]; then
  ssh_state="none (libssh2 did not build, see $out/libssh2-build.log)"
  if ssh_src=$(fetch_source libssh2); then
    ssh_deb_version=$(cd "$ssh_src" && dpkg-parsechangelog -S Version)
    ssh_prefix=$out/libssh2-install
    if [ -f "$ssh_prefix/lib/libssh2.a" ] && [ "$(cat "$ssh_prefix/.zynet-built" 2>/dev/null)" = "$ssh_deb_version" ]; then
      log "libssh2 $ssh_deb_version already built"
    else
      rm -rf "$out/libssh2-build" "$ssh_prefix"
      log "building libssh2 $ssh_deb_version (WinCNG, static)"
    fi
    if [ -f "$ssh_prefix/.zynet-built" ] || { cmake -S "$ssh_src" -B "$out/libssh2-build" -G Ninja \
           -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
           -DCMAKE_BUILD_TYPE=Release \
           -DCMAKE_INSTALL_PREFIX="$ssh_prefix" \
           -DBUILD_SHARED_LIBS=OFF \
           -DCRYPTO_BACKEND=WinCNG \
           -DENABLE_ZLIB_COMPRESSION=OFF \
           -DBUILD_EXAMPLES=OFF -DBUILD_TESTING=OFF \
        && cmake --build "$out/libssh2-build" -j "$jobs" \
        && cmake --install "$out/libssh2-build"; } >"$out/libssh2-build.log" 2>&1 \
       && [ -f "$ssh_prefix/lib/libssh2.a" ] && echo "$ssh_deb_version" >"$ssh_prefix/.zynet-built"; then
      ssh_state="libssh2 $ssh_deb_version (WinCNG, static)"
      # libssh2's WinCNG back-end needs bcrypt and crypt32 from the system.
      ssh_args=(-DCURL_USE_LIBSSH2=ON
                -DLIBSSH2_INCLUDE_DIR="$ssh_prefix/include"
                "-DLIBSSH2_LIBRARY:STRING=$ssh_prefix/lib/libssh2.a;bcrypt;crypt32")
    else
      log "libssh2 did not build; going on without SSH (see ${out#$repo/}/libssh2-build.log)"
    fi
  else
    ssh_state="none (apt-get source libssh2 failed)"
  fi
fi

# ---- curl --------------------------------------------------------------------
bdir=$out/curl-build
rm -rf "$bdir"
log "configuring curl"
cmake -S "$curl_src" -B "$bdir" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
  -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_SHARED_LINKER_FLAGS="$ldflags" \
  -DCMAKE_EXE_LINKER_FLAGS="$ldflags" \
  -DBUILD_SHARED_LIBS=ON \
  -DBUILD_CURL_EXE=OFF \
  -DBUILD_TESTING=OFF \
  -DCURL_USE_SCHANNEL=ON \
  -DCURL_WINDOWS_SSPI=ON \
  -DCURL_USE_OPENSSL=OFF \
  -DCURL_USE_MBEDTLS=OFF -DCURL_USE_BEARSSL=OFF -DCURL_USE_WOLFSSL=OFF \
  -DCURL_USE_NSS=OFF -DCURL_USE_GNUTLS=OFF \
  "${ssh_args[@]}" \
  -DCURL_USE_LIBSSH=OFF \
  -DCURL_USE_LIBPSL=OFF \
  -DUSE_LIBIDN2=OFF -DUSE_WIN32_IDN=OFF \
  -DCURL_ZLIB=OFF -DCURL_BROTLI=OFF -DCURL_ZSTD=OFF \
  -DUSE_NGHTTP2=OFF -DUSE_NGTCP2=OFF -DUSE_QUICHE=OFF -DUSE_MSH3=OFF \
  -DCURL_DISABLE_LDAP=ON -DCURL_DISABLE_LDAPS=ON -DUSE_WIN32_LDAP=OFF \
  -DCURL_USE_GSSAPI=OFF \
  -DENABLE_MANUAL=OFF -DPICKY_COMPILER=OFF \
  -DCURL_CA_BUNDLE=none -DCURL_CA_PATH=none -DCURL_CA_FALLBACK=OFF \
  >"$out/curl-configure.log" 2>&1 || { tail -40 "$out/curl-configure.log" >&2; exit 1; }
log "building curl"
cmake --build "$bdir" -j "$jobs" >"$out/curl-build.log" 2>&1 \
  || { tail -40 "$out/curl-build.log" >&2; exit 1; }

built=$(find "$bdir" -name '*.dll' -path '*lib*' | head -1)
[ -n "$built" ] || { log "no DLL was produced"; exit 1; }

# The DLL must need nothing but system DLLs.
imports=$(x86_64-w64-mingw32-objdump -p "$built" | sed -n 's/^[[:space:]]*DLL Name: //p' | sort -f | tr '\n' ' ')
for i in $imports; do
  case "${i,,}" in
    advapi32.dll|bcrypt.dll|crypt32.dll|kernel32.dll|msvcrt.dll|ws2_32.dll|secur32.dll|user32.dll|normaliz.dll|wldap32.dll|iphlpapi.dll) ;;
    *) log "unexpected import $i in $built"; exit 1 ;;
  esac
done

rm -rf "$out/include"
mkdir -p "$out/include"
cp -r "$curl_src/include/curl" "$out/include/"
cp "$built" "$dll.tmp"
mv -f "$dll.tmp" "$dll"
{
  echo "recipe=$recipe"
  echo "want_ssh=$want_ssh"
  echo "version=curl $curl_deb_version"
  echo "ssh=$ssh_state"
  echo "imports=$imports"
  echo "sha256=$(sha256sum "$dll" | cut -d' ' -f1)"
} >"$stamp"
log "built ${dll#$repo/}: curl $curl_deb_version, SSH: $ssh_state"
log "imports: $imports"
echo "$dll"
