#!/usr/bin/env bash
# Checks the layout rules of the product code; fast, needs no build.
#
#   1. A platform #if (_WIN32, __linux__, __APPLE__, _MSC_VER, __MINGW32__,
#      ...) appears only in the boundary folders and in the allowed headers.
#      Everything else is portable and reaches the OS through the boundary.
#   2. A public header (ZyNetwork/*.h, ZyUtils/*.h at the top level) never
#      includes an internal one (Internal/ or a platform folder), so that an
#      installed header never drags in what is not installed.
#   3. No product file is over 600 lines.
#
# Product files are the C and C++ sources and headers under ZyNetwork/,
# ZyUtils/ and tools/. tests/, fuzz/, examples/ and bench/ are not checked:
# a test that runs on both targets picks its platform with an #if (a socket
# handle type, a Wine-only skip), and the harnesses around the product have
# no boundary of their own to keep.
#
# Exits 0 when every rule holds; otherwise lists every offender per rule and
# exits 1. Usage: bash scripts/check-layout.sh
set -euo pipefail
cd "$(dirname "$0")/.."

# Folders that may hold platform #if: the two halves of each boundary, and
# the Windows-only clients (a Windows-only folder is compiled on Windows
# only, so its #if are about the Windows toolchain, not about the platform).
boundary_dirs=(
  ZyNetwork/Posix
  ZyNetwork/Windows
  ZyNetwork/WinClients
  ZyUtils/Posix
  ZyUtils/Windows
  tools/zynet/Posix
  tools/zynet/Windows
)

# Portable headers that choose the platform's types and export macros.
platform_headers=(
  ZyNetwork/ZyPlatformTypes.h
  ZyUtils/ZyExport.h
)

# Folders a public header must not include from.
internal_dirs=(Internal Posix Windows WinClients)

product_roots=(ZyNetwork ZyUtils tools)
max_lines=600

# Macros that name an OS, a compiler or a toolchain.
platform_macros='_WIN32|_WIN64|WIN32|WIN64|__WIN32__|_WINDOWS|__WINDOWS__|__linux__|__linux|linux|__gnu_linux__|__unix__|__unix|__APPLE__|__MACH__|TARGET_OS_[A-Z_]+|_MSC_VER|_MSC_FULL_VER|__MINGW32__|__MINGW64__|__MINGW[A-Z0-9_]*|__CYGWIN__|__FreeBSD__|__NetBSD__|__OpenBSD__|__DragonFly__|__ANDROID__|__sun|__GNUC__|__clang__|__GLIBC__|_POSIX_VERSION'

failed=0
report() {  # title, offenders (one a line)
  local title=$1 list=$2
  [ -n "$list" ] || return 0
  failed=1
  echo "check-layout: $title" >&2
  printf '%s\n' "$list" | sed 's/^/  /' >&2
}

mapfile -t product_files < <(find "${product_roots[@]}" -type f \
  \( -name '*.h' -o -name '*.hpp' -o -name '*.c' -o -name '*.cpp' -o -name '*.inl' \) | LC_ALL=C sort)

in_list() {  # needle, items...
  local needle=$1; shift
  local item
  for item in "$@"; do [ "$item" = "$needle" ] && return 0; done
  return 1
}

in_boundary() {
  local f=$1 d
  for d in "${boundary_dirs[@]}"; do
    case $f in "$d"/*) return 0 ;; esac
  done
  return 1
}

# --- 1. platform #if outside the boundary -----------------------------------
platform_offenders=""
for f in "${product_files[@]}"; do
  in_boundary "$f" && continue
  in_list "$f" "${platform_headers[@]}" && continue
  # Preprocessor conditionals (#if, #ifdef, #ifndef, #elif, #elifdef), with
  # continuation lines joined, that name a platform macro as a whole word.
  hits=$(awk -v re="(^|[^A-Za-z0-9_])(${platform_macros})([^A-Za-z0-9_]|$)" '
    { line = $0; n = NR
      while (line ~ /\\$/ && (getline more) > 0) { sub(/\\$/, " ", line); line = line more }
      if (line ~ /^[ \t]*#[ \t]*(if|ifdef|ifndef|elif|elifdef|elifndef)([ \t(!]|$)/ && line ~ re)
        printf "%d: %s\n", n, line }' "$f")
  if [ -n "$hits" ]; then
    while IFS= read -r h; do
      platform_offenders+="$f:$h"$'\n'
    done <<<"$hits"
  fi
done
report "platform #if outside the boundary folders (${boundary_dirs[*]}) and the allowed headers (${platform_headers[*]}):" \
  "${platform_offenders%$'\n'}"

# --- 2. public headers that include internal ones ---------------------------
internal_re="(^|/)($(IFS='|'; echo "${internal_dirs[*]}"))/"
include_offenders=""
for root in ZyNetwork ZyUtils; do
  for f in "$root"/*.h "$root"/*.hpp; do
    [ -f "$f" ] || continue
    while IFS=: read -r n inc; do
      # The included path as written, and where it resolves: beside the
      # header first, then from the repository root (the include path).
      target=$(sed -E 's/^[^"<]*["<]([^">]*)[">].*/\1/' <<<"$inc")
      resolved=$target
      [ -e "$root/$target" ] && resolved="$root/$target"
      if [[ $target =~ $internal_re || $resolved =~ $internal_re ]]; then
        include_offenders+="$f:$n: includes $target"$'\n'
      fi
    done < <(grep -nE '^[[:space:]]*#[[:space:]]*include[[:space:]]*["<]' "$f" | cut -d: -f1,2- || true)
  done
done
report "public headers that include an internal header:" "${include_offenders%$'\n'}"

# --- 3. product files over the line limit -----------------------------------
size_offenders=""
for f in "${product_files[@]}"; do
  n=$(awk 'END { print NR }' "$f")
  if [ "$n" -gt "$max_lines" ]; then
    size_offenders+="$f: $n lines"$'\n'
  fi
done
report "product files over $max_lines lines:" "${size_offenders%$'\n'}"

if [ "$failed" -ne 0 ]; then
  echo "check-layout: FAILED (the rules are described at the top of scripts/check-layout.sh)" >&2
  exit 1
fi
echo "check-layout: ${#product_files[@]} product files, all rules hold"
