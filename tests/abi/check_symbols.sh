#!/usr/bin/env bash
# libfwmclk.so imports only platform functions and the C library (and libgcc_s),
# exports only the system's C names, and needs no other library.
# Usage: check_symbols.sh NM READELF CC LIBRARY PLATFORM_DOC PLATFORM_HEADER_DIR
set -euo pipefail
nm=$1 readelf=$2 cc=$3 lib=$4 doc=$5 hdrdir=$6
fail=0

# The platform's names: from the published prototypes when they are beside the
# tree, else from our own declarations of them.
if [ -f "$doc" ]; then
  platform=$(grep -oE '\b[A-Za-z_][A-Za-z0-9_]*\(' "$doc" | tr -d '(' | sort -u || true)
else
  echo "note: $doc not found; using the declarations in $hdrdir"
  platform=$(cat "$hdrdir"/*.h | grep -oE '\b[A-Za-z_][A-Za-z0-9_]*\(' | tr -d '(' | sort -u)
fi
# An empty list would pass every import as a platform one.
[ -n "$platform" ] || { echo "no platform function names found in $doc or $hdrdir" >&2; exit 1; }

system_lib() { "$nm" -D --defined-only "$("$cc" -print-file-name="$1")" 2>/dev/null | awk '{print $NF}' | sed 's/@.*//'; }
clib=$( (system_lib libc.so.6; system_lib libgcc_s.so.1) | sort -u)

# Each check lists what it finds wrong; weak references are optional by nature.
report() { [ -z "$2" ] || { printf '%s:\n%s\n' "$1" "$2"; fail=1; }; }
report "undefined symbols neither platform nor C library" "$("$nm" -D --undefined-only "$lib" |
  awk '$(NF-1) != "w" { sub(/@.*/, "", $NF); print $NF }' | grep -vxF -f <(printf '%s\n' "$platform" "$clib"))"
report "exported symbols outside the system's names" "$("$nm" -D --defined-only "$lib" | awk '{ print $NF }' |
  grep -vE '^(FWM_|CLK_|clk_|g_)|^(_init|_fini|__bss_start|_edata|_end)$')"
report "needed libraries other than the C library" "$("$readelf" -d "$lib" |
  sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -vE '^(libc\.so\.|libgcc_s\.so\.|ld-linux)')"

[ $fail -eq 0 ] && echo "libfwmclk.so: imports, exports and needed libraries are as they should be"
exit $fail
