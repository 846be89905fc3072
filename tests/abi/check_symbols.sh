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
  platform=$(grep -oE '\b[A-Za-z_][A-Za-z0-9_]*\(' "$doc" | tr -d '(' | sort -u)
else
  echo "note: $doc not found; using the declarations in $hdrdir"
  platform=$(cat "$hdrdir"/*.h | grep -oE '\b[A-Za-z_][A-Za-z0-9_]*\(' | tr -d '(' | sort -u)
fi

system_lib() { "$nm" -D --defined-only "$("$cc" -print-file-name="$1")" 2>/dev/null | awk '{print $NF}' | sed 's/@.*//'; }
clib=$( (system_lib libc.so.6; system_lib libgcc_s.so.1) | sort -u)

while read -r kind sym; do
  sym=${sym%%@*}
  [ "$kind" = w ] && continue  # weak references are optional by nature
  if ! grep -qxF "$sym" <<<"$platform" && ! grep -qxF "$sym" <<<"$clib"; then
    echo "undefined symbol neither platform nor C library: $sym"
    fail=1
  fi
done < <("$nm" -D --undefined-only "$lib" | awk '{print $(NF-1), $NF}')

while read -r sym; do
  case "$sym" in
    FWM_* | CLK_* | clk_* | g_*) ;;
    _init | _fini | __bss_start | _edata | _end) ;;
    *) echo "exported symbol outside the system's names: $sym"; fail=1 ;;
  esac
done < <("$nm" -D --defined-only "$lib" | awk '{print $NF}')

while read -r needed; do
  case "$needed" in
    libc.so.* | libgcc_s.so.* | ld-linux*) ;;
    *) echo "needs a library other than the C library: $needed"; fail=1 ;;
  esac
done < <("$readelf" -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')

[ $fail -eq 0 ] && echo "libfwmclk.so: imports, exports and needed libraries are as they should be"
exit $fail
