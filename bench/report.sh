#!/usr/bin/env bash
# The library's performance figures in one table: goal, measured, pass/fail.
#
# Instruction counts come from callgrind over bench/callgrind/hot_paths (a
# trivial engine driver, so only the library's own instructions count); each
# measured loop is a window of its own, and every figure below is a window's
# total divided by its calls, or a difference of two windows of the same
# shape. The acknowledgement rate is wall time: the library on the simulated
# board against a bare eventfd + UDP hand-off, side by side in one run.
# Then the simulated engine's event path on a veth pair (bench/event.sh),
# clkcheck beside tshark on a large capture (bench/clkcheck.sh) and finally
# the armhf .text of libfwmclk.so at -O2 and -Os; live, the servo against
# ptp4l and a chain of boundary cards.
#
# Builds what it needs. Figures are printed, never asserted: the exit code is
# 0 whenever the measurements ran.
#
# usage: bench/report.sh [build dir, default build/release] [--short]
# --short (CI): the live figures over shorter windows (event path 5 s, served
# time 3 rounds of 6 s, live servo 30 s, a chain of K = 1..2 cards with 10 s
# to lock and 5 s locked); by default 9 s, 3 x 10 s, 60 s and K = 1..4 with
# 14 s + 20 s.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
args=()
short=
for a in "$@"; do [ "$a" = --short ] && short=1 || args+=("$a"); done
build=$(realpath -m "${args[0]:-$here/build/release}")
if [ -n "$short" ]; then
  eventSeconds=5 servedArgs=(6 3) liveSeconds=30 chainArgs=(2 10 5)
else
  eventSeconds=9 servedArgs=(10 3) liveSeconds=60 chainArgs=(4 14 20)
fi
jobs=$(nproc)
calls=1000
ticks=20

# ---- build ------------------------------------------------------------------
if [ "$build" = "$here/build/release" ] && [ ! -f "$build/CMakeCache.txt" ]; then
  (cd "$here" && cmake --preset release >/dev/null)
elif ! grep -q '^FWMCLK_BUILD_BENCH:BOOL=ON' "$build/CMakeCache.txt" 2>/dev/null; then
  cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFWMCLK_BUILD_BENCH=ON >/dev/null
fi
cmake --build "$build" --target fwmclk hot_paths channel_bench -j "$jobs" >/dev/null

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

# ---- callgrind windows ------------------------------------------------------
# run <name> <hot_paths arguments...>: one dump per window, <name>.cg.<n>
run() {
  local name=$1
  shift
  valgrind --tool=callgrind --callgrind-out-file="$out/$name.cg" --collect-atstart=no --compress-strings=no \
    --compress-pos=no "$build/bench/hot_paths" "$@" >/dev/null 2>"$out/$name.log" ||
    { echo "report.sh: hot_paths $* failed, see below" >&2; cat "$out/$name.log" >&2; exit 1; }
}
# dump <name> <window>: the file holding that window
dump() { grep -l "^desc: Trigger: Client Request: $2\$" "$out/$1".cg.* | head -1; }
# total <name> <window>: instructions in the window
total() { awk '/^totals:/ {print $2}' "$(dump "$1" "$2")"; }
# into <name> <window> <regex>: instructions inside calls of matching functions
# made from non-matching ones (their inclusive cost, as callgrind counts it)
into() {
  awk -v re="$3" '/^fn=/ {fn = substr($0, 4)} /^cfn=/ {cfn = substr($0, 5)}
    /^calls=/ {getline; if (cfn ~ re && fn !~ re) s += $NF} END {print s + 0}' "$(dump "$1" "$2")"
}
# entries <name> <window> <calls>: "entry=calls per window call" for every NP entry called
entries() {
  awk -v n="$3" '/^fn=/ {fn = substr($0, 4)} /^cfn=/ {cfn = substr($0, 5)}
    /^calls=/ {if (cfn ~ /^CLK_NP_1588_/ && fn !~ /^CLK_NP_1588_/) c[cfn] += substr($1, 7)}
    END {for (k in c) print k "=" int(c[k] / n)}' "$(dump "$1" "$2")" | sort | tr '\n' ' '
}
# allocating <name>: windows of that run in which an allocation function ran
allocating() {
  grep -lE '^fn=(malloc|calloc|realloc|operator new|_Znw|_Zna)' "$out/$1".cg.* 2>/dev/null |
    xargs -r grep -h '^desc: Trigger' | sed 's/.*: //' | tr '\n' ' ' || true
}

run np np "$calls"
run portcfg portcfg 200
for ports in 0 1 64 384; do run "tick$ports" tick "$ticks" "$ports"; done

per() { awk -v t="$1" -v n="$2" 'BEGIN {printf "%.1f", t / n}'; }
direct=$(per "$(total np direct)" "$calls")
adapter=$(per "$(total np adapter)" "$calls")
npentry=$(per "$(total np np)" "$calls")
adapterNoLine=$(per "$(total np adapter-noline)" "$calls")
npNoLine=$(per "$(total np np-noline)" "$calls")
portcfg=$(per "$(total portcfg portcfg)" 200)
portcfgNp=$(per "$(total portcfg portcfg-np)" 200)

# ---- acknowledgements -------------------------------------------------------
# Repetitions in random order, medians compared: the machine's other load
# falls on both sides alike.
"$build/bench/channel_bench" --benchmark_format=json --benchmark_min_time=0.2 --benchmark_repetitions=5 \
  --benchmark_enable_random_interleaving=true >"$out/ack.json" 2>"$out/ack.log" ||
  { echo "report.sh: channel_bench failed" >&2; cat "$out/ack.log" >&2; exit 1; }
ackRates=$(python3 - "$out/ack.json" <<'EOF'
import json, sys
rate = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("aggregate_name") == "median":
        rate[b["run_name"]] = b.get("msgs_per_s", 0.0)
for batch in (1, 64):
    lib = rate.get("BM_AckToPeer/%d/real_time" % batch, 0.0)
    bare = rate.get("BM_BareHandOff/%d/real_time" % batch, 0.0)
    print(batch, "%.0f" % lib, "%.0f" % bare, "%.2f" % (lib / bare if bare else 0.0))
EOF
)

# ---- armhf .text ------------------------------------------------------------
text_size() {  # <-O level>: .text bytes of an armhf library-only build
  local dir=$here/build/armhf-text$1
  # The armhf package build compiles the library with the same flags at -O2.
  [ "$1" != -O2 ] || [ ! -f "$here/build/package-armhf/src/libfwmclk.so" ] || dir=$here/build/package-armhf
  command -v arm-linux-gnueabihf-g++ >/dev/null || { echo "n/a (no arm-linux-gnueabihf-g++)"; return; }
  if [ ! -f "$dir/CMakeCache.txt" ]; then
    cmake -S "$here" -B "$dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$here/cmake/arm-linux-gnueabihf.cmake" \
      -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS_RELEASE=$1 -DNDEBUG" "-DCMAKE_C_FLAGS_RELEASE=$1 -DNDEBUG" \
      -DFWMCLK_BUILD_TESTS=OFF -DFWMCLK_BUILD_TOOLS=OFF -DFWMCLK_WERROR=ON >/dev/null
  fi
  cmake --build "$dir" --target fwmclk -j "$jobs" >/dev/null
  arm-linux-gnueabihf-size -A "$dir/src/libfwmclk.so" | awk '$1 == ".text" {print $2 " bytes"}'
}
textO2=$(text_size -O2)
textOs=$(text_size -Os)

# ---- the table --------------------------------------------------------------
lib=$build/src/libfwmclk.so
needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
noAlloc=$(allocating np)$(allocating tick0)$(allocating tick1)$(allocating tick64)$(allocating tick384)

row() { printf '%-74s %-10s %-14s %s\n' "$@"; }
verdict() { awk -v v="$1" -v op="$2" -v g="$3" 'BEGIN {ok = op == "<=" ? v <= g : v >= g; print ok ? "pass" : "FAIL"}'; }

echo "fwmclk performance ($(git -C "$here" rev-parse --short HEAD 2>/dev/null || echo unknown), $(uname -m), callgrind)"
row "figure" "goal" "measured" "result"
over=$(awk -v a="$npentry" -v b="$direct" 'BEGIN {printf "%.1f", a - b}')
row "NP entry SetPtpCtrl, MSG off, over the engine-driver call" "<= +40" "+$over" "$(verdict "$over" "<=" 40)"
row "  of which the adapter / the NP frame" "" "$(awk -v a="$adapter" -v d="$direct" -v n="$npentry" \
  'BEGIN {printf "+%.0f / +%.0f", a - d, n - a}')" ""
line=$(awk -v n="$npentry" -v a="$adapter" -v nn="$npNoLine" -v an="$adapterNoLine" \
  'BEGIN {printf "%.1f", (n - a) - (nn - an)}')
row "switched-off diagnostic line, at the call site" "<= 10" "$line" "$(verdict "$line" "<=" 10)"
# A port's share of a tick: the tick over the ports less the tick over an
# empty list (the ready checks, the walk's set-up), less the alarm reads.
empty=$(total tick0 tick)
row "tick over an empty list (once per tick, whatever the ports)" "" "$(per "$empty" "$ticks")" ""
for ports in 1 64 384; do
  t=$(total "tick$ports" tick)
  alarms=$(into "tick$ports" tick '^CLK_NP_1588_GetAnnounceAlarm$')
  perPort=$(awk -v t="$t" -v e="$empty" -v a="$alarms" -v n="$ticks" -v p="$ports" \
    'BEGIN {printf "%.1f", (t - e - a) / n / p}')
  alarm=$(awk -v a="$alarms" -v n="$ticks" -v p="$ports" 'BEGIN {printf "%.0f", a / n / p / 2}')
  row "tick, $ports port(s): per port besides its 2 alarm reads ($alarm each)" "<= 60" "$perPort" \
    "$(verdict "$perPort" "<=" 60)"
done
ratio=$(awk -v a="$portcfg" -v b="$portcfgNp" 'BEGIN {printf "%.3f", a / b}')
same=$([ "$(entries portcfg portcfg 200)" = "$(entries portcfg portcfg-np 200)" ] && echo pass || echo FAIL)
row "SetPtpPortCfg (Mira, MSG off) / its NP entries ($portcfg / $portcfgNp)" "<= 1.15" "$ratio" \
  "$(verdict "$ratio" "<=" 1.15)"
row "  both windows call the same NP entries equally often" "same" "$(entries portcfg portcfg 200 | wc -w) entries" \
  "$same"
while read -r batch libRate bareRate r; do
  row "acks, batch $batch: library / bare eventfd+UDP ($libRate / $bareRate per s)" ">= 0.5" "$r" \
    "$(verdict "$r" ">=" 0.5)"
done <<<"$ackRates"
row "heap allocations on NP entry, log line, tick" "none" "${noAlloc:-none}" "$([ -z "$noAlloc" ] && echo pass || echo FAIL)"
row "NEEDED of libfwmclk.so" "libc only" "$needed" \
  "$(echo "$needed" | tr ' ' '\n' | grep -v '^$' | grep -qv '^libc\.so' && echo FAIL || echo pass)"
# The live figures below run this build's clksim: left to themselves, the
# network benchmarks would make a build of their own first.
cmake --build "$build" --target clksim -j "$jobs" >/dev/null
export CLKSIM="$build/tools/clksim/clksim"
# The simulated engine's event path on a veth pair (bench/event.sh): figures
# of the simulator, not of the library; n/a where no namespace can be made.
# The goal holds like for like: ptp4l writes no record of each message, so
# the card's row with its trace written is a figure, not held to it.
if events=$(bash "$here/bench/event.sh" "$eventSeconds" --rows 2>"$out/event.log"); then
  while IFS=$'\t' read -r figure value; do
    case $figure in
      *"card / ptp4l"*) row "$figure" "<= 1.00x" "$value" "$(verdict "${value%x}" "<=" 1.00)" ;;
      *) row "$figure" "" "$value" "" ;;
    esac
  done <<<"$events"
else
  row "event path (bench/event.sh)" "" "n/a" ""
fi
# Served time (bench/served.sh): a ptp4l slave measuring the card's master
# port beside a ptp4l master on the same link, alternating rounds pooled; n/a
# without ptp4l or a namespace.
if served=$(bash "$here/bench/served.sh" "${servedArgs[@]}" --rows 2>"$out/served.log"); then
  while IFS=$'\t' read -r figure value; do
    row "$figure" "<= 1.10x" "$value" "$(verdict "${value%x}" "<=" 1.10)"
  done <<<"$served"
else
  row "served time beside ptp4l (bench/served.sh)" "" "n/a" ""
fi
# clkcheck beside tshark on one large capture (bench/clkcheck.sh): figures of
# the desk tool, not of the library; n/a without tshark.
if cmake --build "$build" --target clkcheck -j "$jobs" >/dev/null &&
  checks=$(bash "$here/bench/clkcheck.sh" "$build/tools/clkcheck/clkcheck" 300000 --rows 2>"$out/clkcheck.log"); then
  while IFS=$'\t' read -r figure value; do row "$figure" "" "$value" ""; done <<<"$checks"
else
  row "clkcheck beside tshark (bench/clkcheck.sh)" "" "n/a" ""
fi
# The servo on a live link against ptp4l (bench/live_te.sh, 60 s locked):
# figures of the simulator beside ptp4l's own; n/a without ptp4l or namespaces.
if live=$(bash "$here/bench/live_te.sh" "$liveSeconds" --rows 2>"$out/live_te.log"); then
  while IFS=$'\t' read -r figure value; do row "$figure" "" "$value" ""; done <<<"$live"
else
  row "live servo against ptp4l (bench/live_te.sh)" "" "n/a" ""
fi
# Boundary cards in a chain between ptp4l instances (bench/chain.sh, K = 1..4):
# each card's TE and the slave's offset end to end; n/a without ptp4l or namespaces.
if chain=$(bash "$here/bench/chain.sh" "${chainArgs[@]}" --rows 2>"$out/chain.log"); then
  while IFS=$'\t' read -r figure value; do row "$figure" "" "$value" ""; done <<<"$chain"
else
  row "boundary cards in a chain (bench/chain.sh)" "" "n/a" ""
fi
# The virtual network (bench/vnet_bench.cpp): a slave at 16 Syncs/s for one
# virtual hour, as a multiple of real time.
if cmake --build "$build" --target vnet_bench -j "$jobs" >/dev/null &&
  "$build/bench/vnet_bench" --benchmark_format=json >"$out/vnet.json" 2>"$out/vnet.log"; then
  fast=$(python3 -c 'import json, sys; print("%.0f" % json.load(open(sys.argv[1]))["benchmarks"][0]["x_real_time"])' \
    "$out/vnet.json")
  row "virtual link, slave at 16 Syncs/s for a virtual hour: x real time" ">= 1000" "$fast" \
    "$(verdict "$fast" ">=" 1000)"
else
  row "virtual link, slave at 16 Syncs/s for a virtual hour (bench/vnet_bench)" "" "n/a" ""
fi
# The same through clksim (bench/servo/servo_bench.cpp): the servo reads and steers
# through the library 16 times a second for a virtual hour, outputs off.
if cmake --build "$build" --target servo_bench -j "$jobs" >/dev/null &&
  "$build/bench/servo_bench" --benchmark_format=json >"$out/servo.json" 2>"$out/servo.log"; then
  fast=$(python3 -c 'import json, sys; print("%.0f" % json.load(open(sys.argv[1]))["benchmarks"][0]["x_real_time"])' \
    "$out/servo.json")
  row "clksim, locked servo at 16 Syncs/s for a virtual hour: x real time" ">= 1000" "$fast" \
    "$(verdict "$fast" ">=" 1000)"
else
  row "clksim, locked servo at 16 Syncs/s for a virtual hour (bench/servo/servo_bench)" "" "n/a" ""
fi
row "armhf .text of libfwmclk.so, -O2" "" "$textO2" ""
row "armhf .text of libfwmclk.so, -Os" "" "$textOs" ""
