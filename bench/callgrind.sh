#!/bin/sh
# Counts the instructions of one SetPtpCtrl by three paths under callgrind, on
# the simulated engine (bench/report.sh counts the library alone, on a trivial
# engine driver):
# the engine-driver function alone, the adapter's slot operation, and the NP
# entry, the latter with the MSG log level off and on. Each figure is the
# inclusive count of the named function per call (the engine model's own work
# included), so the differences are what the adapter and the NP frame add.
#
# usage: bench/callgrind.sh [build dir, default build/release] [calls, default 1000]
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build/release}
calls=${2:-1000}
bin=$build/bench/np_calls
[ -x "$bin" ] || { echo "build np_calls first: cmake --build $build --target np_calls" >&2; exit 1; }
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

# count <label> <path> <msg> <function>
count() {
  valgrind --tool=callgrind --callgrind-out-file="$out/$1.cg" --collect-atstart=no \
    --toggle-collect="$4" "$bin" "$2" "$calls" "$3" >/dev/null 2>"$out/$1.log"
  total=$(callgrind_annotate "$out/$1.cg" 2>/dev/null | awk '/PROGRAM TOTALS/ {gsub(",", "", $1); print $1; exit}')
  allocs=$(callgrind_annotate --inclusive=yes "$out/$1.cg" 2>/dev/null | grep -cE ':(malloc|calloc|realloc|operator new)' || true)
  per=$((total / calls))
  printf '%-28s %8d instructions/call  (allocating functions seen: %s)\n' "$1" "$per" "$allocs"
  eval "$5=$per"
}

count "direct oda call" direct 0 oda_1588_set_ptp_control direct
count "adapter" adapter 0 clk_1588_set_ptp_control adapter
count "NP entry, MSG off" np 0 CLK_NP_1588_SetPtpCtrl npoff
count "NP entry, MSG on" np 1 CLK_NP_1588_SetPtpCtrl npon

awk -v d="$direct" -v a="$adapter" -v off="$npoff" -v on="$npon" 'BEGIN {
  printf "adapter adds %d, NP frame adds %d more (MSG off)\n", a - d, off - a
  printf "ratio NP entry / direct call: MSG off %.2f, MSG on %.2f\n", off / d, on / d
}'

# One announce tick: instructions per tick and per port, quiet and with every
# port's change alarm raised (the worker's sending is not counted).
tick_bin=$build/bench/tick_calls
if [ -x "$tick_bin" ]; then
  ticks=20
  for mode in quiet changed; do
    for ports in 1 64 384; do
      [ "$mode" = changed ] && [ "$ports" = 384 ] && continue
      valgrind --tool=callgrind --callgrind-out-file="$out/tick.cg" --collect-atstart=no \
        --toggle-collect=FWM_SRV_AnnTimerOutProc "$tick_bin" "$mode" "$ticks" "$ports" >/dev/null 2>"$out/tick.log"
      total=$(callgrind_annotate "$out/tick.cg" 2>/dev/null | awk '/PROGRAM TOTALS/ {gsub(",", "", $1); print $1; exit}')
      printf 'tick, %-7s %4d ports: %9d instructions/tick  %6d per port\n' "$mode" "$ports" \
        $((total / ticks)) $((total / ticks / ports))
    done
  done
fi
