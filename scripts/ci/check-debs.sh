#!/usr/bin/env bash
# Checks Debian packages built by CPack: each one unpacked (dpkg -x) holds
# exactly what packaging/contents/<package> lists (every file matches a line,
# every line matches a file), is built for ARCH, the library depends on the C
# library alone, and lintian finds nothing not explained in packaging/lintian.
# Usage: scripts/ci/check-debs.sh ARCH PACKAGE.deb...
set -euo pipefail
shopt -s extglob
cd "$(dirname "$0")/../.."
arch=$1; shift
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "check-debs: $*" >&2; exit 1; }

seen=()
for deb in "$@"; do
  pkg=$(dpkg-deb -f "$deb" Package)
  seen+=("$pkg")
  [ "$(dpkg-deb -f "$deb" Architecture)" = "$arch" ] || fail "$pkg: built for $(dpkg-deb -f "$deb" Architecture), not $arch"
  [ -f "packaging/contents/$pkg" ] || fail "$pkg: no contents list in packaging/contents"
  dpkg -x "$deb" "$scratch/$pkg"
  mapfile -t files < <(cd "$scratch/$pkg" && find . ! -type d | sed 's/^\.//' | sort)
  mapfile -t patterns < "packaging/contents/$pkg"
  for f in "${files[@]}"; do
    ok=0
    for p in "${patterns[@]}"; do [[ $f == $p ]] && ok=1 && break; done
    [ $ok = 1 ] || fail "$pkg: $f does not belong in it"
  done
  for p in "${patterns[@]}"; do
    ok=0
    for f in "${files[@]}"; do [[ $f == $p ]] && ok=1 && break; done
    [ $ok = 1 ] || fail "$pkg: nothing matches $p"
  done
  echo "check-debs: $pkg ($arch): ${#files[@]} files as listed"
done
[ "$(printf '%s\n' "${seen[@]}" | sort | tr '\n' ' ')" = "fwmclk-sim libfwmclk-dev libfwmclk0 " ] ||
  fail "expected the packages fwmclk-sim, libfwmclk-dev and libfwmclk0, got ${seen[*]}"

# The production library needs the C library and nothing else.
depends=$(dpkg-deb -f "$(printf '%s\n' "$@" | grep /libfwmclk0_)" Depends)
[[ $depends =~ ^libc6\ \(\>=\ [0-9.]+\)$ ]] || fail "libfwmclk0 depends on: $depends"
needed=$(readelf -d "$scratch"/libfwmclk0/usr/lib/*/libfwmclk.so.0 | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
[ "$needed" = "libc.so.6 " ] || fail "libfwmclk.so.0 needs: $needed"

lintian --fail-on error,warning "$@"
echo "check-debs: lintian clean"
