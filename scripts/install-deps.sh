#!/usr/bin/env bash
# Installs what the build, the tests and the Windows cross-build need on
# Debian 12. Idempotent: when everything is present it only checks and exits.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libboost-dev libcurl4-openssl-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  g++-mingw-w64-x86-64-posix wine64
  dpkg-dev
  man-db groff-base
  clang libclang-rt-14-dev
  iproute2 util-linux procps python3
  nlohmann-json3-dev
  nginx tinyproxy openssl apache2 lighttpd curl
  python3-pyftpdlib python3-openssl openssh-server openssh-client passwd
  gcovr
  vsftpd lftp wget time
  doxygen
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO=sudo; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
