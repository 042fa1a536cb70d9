#!/usr/bin/env bash
# Builds the Windows x86-64 libcurl that ZyNetwork.dll loads as "RKCurl.dll"
# (see docs/platforms/curl.md, "The Windows libcurl").
#
# Debian ships no libcurl for mingw, so this cross-builds Debian's own source
# packages with mingw-w64:
#   1. OpenSSL (apt-get source openssl, 3.0.x): static libcrypto only (only
#      its make target is built: no libssl, apps, tests or docs), no engines,
#      modules, config autoloading or file names in its objects;
#   2. libssh2 (1.10 with Debian's patches): static, OpenSSL back-end over
#      that libcrypto, so SSH's crypto runs in software and does not depend on
#      the system's (or Wine's) bcrypt;
#   3. curl (7.88.1 with Debian's patches): a shared library with Schannel for
#      TLS and SSPI, libssh2 for SFTP and SCP, no OpenSSL TLS, zlib, nghttp2,
#      IDN, PSL or LDAP.
# The DLL needs nothing but system DLLs, and the same sources give the same
# bytes (no timestamps, no build paths).
#
# The results are cached outside the clone, keyed by the three source
# versions and the recipe number below:
#   $ZYNET_WIN_DEPS_CACHE (default /var/cache/zynetwork/win-deps)/
#     src/<package>_<version>/        Debian's source packages
#     <key>/RKCurl.dll, RKCurl.stamp, include/curl/, logs/
# so that a fresh clone on the same machine does not build them again. The
# DLL, its stamp, curl's headers and the licence texts of curl, libssh2 and
# OpenSSL (licenses/) are then copied to build/win-deps/ of the clone (or
# $ZYNET_WIN_DEPS_DIR). Nothing of it is ever tracked.
#
# Run as root or with sudo (like scripts/install-deps.sh): it may add a
# deb-src entry, run apt-get update and install packages.
#   bash scripts/build-win-curl.sh [--force]     (--force rebuilds the cache entry)
# Prints the DLL's path on its last line.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

out=${ZYNET_WIN_DEPS_DIR:-$repo/build/win-deps}
dll=$out/RKCurl.dll
stamp=$out/RKCurl.stamp
# Bump when the recipe below changes so that cached DLLs are rebuilt.
recipe=2
force=0
[ "${1:-}" = "--force" ] && force=1
started=$(date +%s)

log() { echo "build-win-curl: $*" >&2; }

# ---- fast path: the clone already has the DLL of this recipe ----------------
if [ $force -eq 0 ] && [ -s "$dll" ] && [ -f "$stamp" ] && grep -qx "recipe=$recipe" "$stamp"; then
  log "up to date: $(grep '^key=' "$stamp" | cut -d= -f2-)"
  echo "$dll"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO=sudo; fi
export DEBIAN_FRONTEND=noninteractive

# ---- packages --------------------------------------------------------------
packages=(dpkg-dev cmake ninja-build make perl gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64)
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

# ---- the cache -----------------------------------------------------------------
cache=${ZYNET_WIN_DEPS_CACHE:-/var/cache/zynetwork/win-deps}
if ! mkdir -p "$cache" 2>/dev/null || [ ! -w "$cache" ]; then
  cache=${XDG_CACHE_HOME:-$HOME/.cache}/zynetwork/win-deps
  log "cannot write the default cache; using $cache"
  mkdir -p "$cache"
fi
# One build at a time per cache (two CI runs on one machine wait for each other).
exec 9>"$cache/.lock"
flock 9

# ---- source packages ---------------------------------------------------------
# Unpacks a source package's upstream tarball and Debian tarball in $1 and
# applies Debian's patches (what dpkg-source -x does for a "3.0 (quilt)"
# package). Used only when apt-get fetched and checked both tarballs (their
# SHA-256 sums are in the signed Sources index) but could not fetch the .dsc.
unpack_without_dsc() {
  local where=$1 pkg=$2 orig deb dir p
  orig=$(ls "$where/${pkg}"_*.orig.tar.* 2>/dev/null | grep -v '\.asc$' | sort | tail -1)
  deb=$(ls "$where/${pkg}"_*.debian.tar.* 2>/dev/null | sort | tail -1)
  [ -n "$orig" ] && [ -n "$deb" ] || return 1
  log "unpacking ${orig##*/} + ${deb##*/} and applying debian/patches"
  dir=$(tar tf "$orig" | head -1 | cut -d/ -f1)
  rm -rf "${where:?}/$dir"
  tar xf "$orig" -C "$where" && tar xf "$deb" -C "$where/$dir" || return 1
  if [ -f "$where/$dir/debian/patches/series" ]; then
    while read -r p _; do
      case "$p" in ''|'#'*) continue ;; esac
      patch -d "$where/$dir" -p1 -s -N <"$where/$dir/debian/patches/$p" || return 1
    done <"$where/$dir/debian/patches/series"
  fi
  case "$dir" in "$pkg-"[0-9]*) ;; *) mv "$where/$dir" "$where/$pkg-unpacked" ;; esac
}

# Unpacks version $2 of source package $1 into the cache once; prints its
# directory.
fetch_version() {
  local pkg=$1 version=$2 where dir
  where=$cache/src/${pkg}_$version
  dir=$(find "$where" -maxdepth 1 -type d -name "$pkg-*" 2>/dev/null | sort | tail -1)
  if [ -n "$dir" ] && [ -f "$dir/.zynet-unpacked" ]; then echo "$dir"; return 0; fi
  rm -rf "$where"
  mkdir -p "$where"
  log "apt-get source $pkg=$version"
  if ! (cd "$where" && apt-get source -qq "$pkg=$version" >/dev/null 2>"$where/apt.log"); then
    grep -E '^(E|Err):' "$where/apt.log" >&2 || cat "$where/apt.log" >&2
    unpack_without_dsc "$where" "$pkg" || return 1
  fi
  dir=$(find "$where" -maxdepth 1 -type d -name "$pkg-*" | sort | tail -1)
  [ -n "$dir" ] || { log "apt-get source $pkg unpacked nothing"; return 1; }
  touch "$dir/.zynet-unpacked"
  echo "$dir"
}

# The newest version of source package $1 in the package index that can be
# fetched (a mirror may lack the newest one's files for a while; such a
# version is tried again after a day). Sets src_dir and src_version.
fetch_source() {
  local pkg=$1 v versions
  versions=$(apt-cache showsrc --only-source "$pkg" 2>/dev/null | sed -n 's/^Version: //p' | sort -u -V -r)
  if [ -z "$versions" ] && [ $apt_updated -eq 0 ]; then
    $SUDO apt-get update -qq; apt_updated=1
    versions=$(apt-cache showsrc --only-source "$pkg" 2>/dev/null | sed -n 's/^Version: //p' | sort -u -V -r)
  fi
  for v in $versions; do
    v=${v#*:}
    if [ -n "$(find "$cache/src" -maxdepth 1 -name "${pkg}_$v.unavailable" -mmin -1440 2>/dev/null)" ]; then
      continue
    fi
    if src_dir=$(fetch_version "$pkg" "$v"); then
      src_version=$v
      rm -f "$cache/src/${pkg}_$v.unavailable"
      return 0
    fi
    log "$pkg $v cannot be fetched; trying an older version"
    rm -rf "${cache:?}/src/${pkg}_$v"
    touch "$cache/src/${pkg}_$v.unavailable"
  done
  log "no version of source package $pkg could be fetched"
  return 1
}

mkdir -p "$cache/src"
fetch_source curl; curl_src=$src_dir; curl_version=$src_version
fetch_source libssh2; ssh_src=$src_dir; ssh_version=$src_version
fetch_source openssl; ossl_src=$src_dir; ossl_version=$src_version
key="curl-${curl_version}_libssh2-${ssh_version}_openssl-${ossl_version}_r${recipe}"
entry=$cache/$key


# Copies a cache entry into the clone's build tree, with the licence texts
# of what the DLL holds (for the Windows package), and prints the DLL's path.
deliver() {
  mkdir -p "$out"
  rm -rf "$out/include" "$out/licenses"
  cp -r "$entry/include" "$out/include"
  mkdir -p "$out/licenses"
  cp "$curl_src/COPYING" "$out/licenses/curl.txt"
  cp "$ssh_src/COPYING" "$out/licenses/libssh2.txt"
  cp "$ossl_src/LICENSE.txt" "$out/licenses/openssl.txt"
  cp "$entry/RKCurl.dll" "$dll.tmp"
  mv -f "$dll.tmp" "$dll"
  cp "$entry/RKCurl.stamp" "$stamp"
  log "$1 $key in $(( $(date +%s) - started )) s"
  echo "$dll"
}

if [ $force -eq 0 ] && [ -s "$entry/RKCurl.dll" ] && [ -f "$entry/RKCurl.stamp" ]; then
  deliver "cached:"
  exit 0
fi

work=$cache/$key.work
rm -rf "$work" "$entry.tmp"
mkdir -p "$work" "$entry.tmp/logs"
logs=$entry.tmp/logs
prefix=$work/prefix
toolchain=$repo/cmake/mingw-w64-x86_64.cmake
jobs=$(nproc 2>/dev/null || echo 2)
cross=x86_64-w64-mingw32-
# Source and build paths never reach the objects (assert texts, file names).
mapflags="-ffile-prefix-map=$cache/src=src -ffile-prefix-map=$work=build"
# -static keeps mingw's runtime out of the DLL's imports; -s drops the symbol
# table (it names object files); no timestamp makes rebuilds byte-identical.
ldflags="-static -static-libgcc -s -Wl,--no-insert-timestamp"

fail() { log "$1 failed; last lines of ${2#$cache/}:"; tail -40 "$2" >&2; exit 1; }

# ---- 1. OpenSSL: static libcrypto ----------------------------------------------
# The build-information text (date, flags) gets the package's changelog date,
# not the build's. OpenSSL names its sources relative to the build directory,
# so no path of this machine reaches its objects.
log "building libcrypto from openssl $ossl_version"
ossl_date=$(dpkg-parsechangelog -l "$ossl_src/debian/changelog" -S Timestamp)
mkdir -p "$work/openssl"
(
  cd "$work/openssl"
  export SOURCE_DATE_EPOCH=$ossl_date
  perl "$ossl_src/Configure" mingw64 --cross-compile-prefix=$cross CC=gcc-posix \
    --prefix=/zynet-openssl --openssldir=/zynet-openssl/ssl --libdir=lib \
    no-shared no-tests no-engine no-dso no-module \
    no-autoload-config no-filenames no-legacy no-ui-console \
    no-camellia no-aria no-seed no-idea no-rc2 no-rc4 no-rc5 no-mdc2 no-whirlpool \
    no-sm2 no-sm3 no-sm4 no-srp no-ts no-ocsp no-ct no-cmp no-gost no-siphash no-comp \
  && make -j "$jobs" build_generated \
  && make -j "$jobs" libcrypto.a
) >"$logs/openssl.log" 2>&1 || fail "openssl" "$logs/openssl.log"
mkdir -p "$prefix/lib" "$prefix/include/openssl"
cp "$work/openssl/libcrypto.a" "$prefix/lib/"
cp "$ossl_src"/include/openssl/*.h "$prefix/include/openssl/"
cp "$work/openssl"/include/openssl/*.h "$prefix/include/openssl/"
# What a program linking libcrypto statically on Windows needs from the system.
ossl_syslibs="ws2_32;crypt32;user32;advapi32;bcrypt"

# ---- 2. libssh2: static, OpenSSL back-end ----------------------------------------
# CMake's FindOpenSSL takes a mingw libcrypto from LIB_EAY and wants a libssl
# in SSL_EAY that libssh2 never uses (libcrypto stands in). libssh2's own test
# for EVP_aes_128_ctr links without libcrypto's system libraries and would
# fail, leaving it on a slower AES-CTR of its own: libcrypto 3.0 has it.
log "building libssh2 $ssh_version (OpenSSL back-end, static)"
{ cmake -S "$ssh_src" -B "$work/libssh2" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_FLAGS="$mapflags" \
    -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DBUILD_SHARED_LIBS=OFF \
    -DCRYPTO_BACKEND=OpenSSL \
    -DOPENSSL_INCLUDE_DIR="$prefix/include" \
    -DLIB_EAY="$prefix/lib/libcrypto.a" \
    -DSSL_EAY="$prefix/lib/libcrypto.a" \
    -DHAVE_EVP_AES_128_CTR=1 \
    -DENABLE_ZLIB_COMPRESSION=OFF \
    -DBUILD_EXAMPLES=OFF -DBUILD_TESTING=OFF \
  && cmake --build "$work/libssh2" -j "$jobs" \
  && cmake --install "$work/libssh2"; } >"$logs/libssh2.log" 2>&1 || fail "libssh2" "$logs/libssh2.log"
[ -f "$prefix/lib/libssh2.a" ] || fail "libssh2 (no libssh2.a)" "$logs/libssh2.log"

# ---- 3. curl: shared, Schannel for TLS, libssh2 for SSH ---------------------------
# curl must not see OpenSSL as a TLS back-end: CURL_USE_OPENSSL=OFF, and
# libcrypto comes in only as part of libssh2's link line.
log "building curl $curl_version"
cmake -S "$curl_src" -B "$work/curl" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
  -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_FLAGS="$mapflags" \
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
  -DCURL_USE_LIBSSH2=ON \
  -DLIBSSH2_INCLUDE_DIR="$prefix/include" \
  "-DLIBSSH2_LIBRARY:STRING=$prefix/lib/libssh2.a;$prefix/lib/libcrypto.a;$ossl_syslibs" \
  -DCURL_USE_LIBSSH=OFF \
  -DCURL_USE_LIBPSL=OFF \
  -DUSE_LIBIDN2=OFF -DUSE_WIN32_IDN=OFF \
  -DCURL_ZLIB=OFF -DCURL_BROTLI=OFF -DCURL_ZSTD=OFF \
  -DUSE_NGHTTP2=OFF -DUSE_NGTCP2=OFF -DUSE_QUICHE=OFF -DUSE_MSH3=OFF \
  -DCURL_DISABLE_LDAP=ON -DCURL_DISABLE_LDAPS=ON -DUSE_WIN32_LDAP=OFF \
  -DCURL_USE_GSSAPI=OFF \
  -DENABLE_MANUAL=OFF -DPICKY_COMPILER=OFF \
  -DCURL_CA_BUNDLE=none -DCURL_CA_PATH=none -DCURL_CA_FALLBACK=OFF \
  >"$logs/curl-configure.log" 2>&1 || fail "curl configure" "$logs/curl-configure.log"
grep -q 'Enabled SSL backends: Schannel$' "$logs/curl-configure.log" \
  || fail "curl configure (TLS back-end other than Schannel alone)" "$logs/curl-configure.log"
cmake --build "$work/curl" -j "$jobs" >"$logs/curl-build.log" 2>&1 || fail "curl build" "$logs/curl-build.log"

built=$(find "$work/curl" -name '*.dll' -path '*lib*' | head -1)
[ -n "$built" ] || { log "no DLL was produced"; exit 1; }

# The DLL must need nothing but system DLLs.
imports=$(${cross}objdump -p "$built" | sed -n 's/^[[:space:]]*DLL Name: //p' | sort -f | tr '\n' ' ')
for i in $imports; do
  case "${i,,}" in
    advapi32.dll|bcrypt.dll|crypt32.dll|kernel32.dll|msvcrt.dll|ws2_32.dll|secur32.dll|user32.dll|normaliz.dll|wldap32.dll|iphlpapi.dll) ;;
    *) log "unexpected import $i in $built"; exit 1 ;;
  esac
done

mkdir -p "$entry.tmp/include"
cp -r "$curl_src/include/curl" "$entry.tmp/include/"
cp "$built" "$entry.tmp/RKCurl.dll"
{
  echo "recipe=$recipe"
  echo "key=$key"
  echo "version=curl $curl_version"
  echo "ssh=libssh2 $ssh_version (OpenSSL back-end, static)"
  echo "crypto=openssl $ossl_version (static libcrypto)"
  echo "tls=Schannel"
  echo "imports=$imports"
  echo "sha256=$(sha256sum "$built" | cut -d' ' -f1)"
  echo "build_seconds=$(( $(date +%s) - started ))"
} >"$entry.tmp/RKCurl.stamp"
rm -rf "$entry"
mv "$entry.tmp" "$entry"
rm -rf "$work"
log "imports: $imports"
deliver "built"
