#!/usr/bin/env bash
# The line card on a real link: builds clksim, makes two network namespaces
# joined by a veth pair (clk0 here, peer0 there; unprivileged through
# `unshare -rn` where the kernel allows, as root otherwise), runs linuxptp's
# ptp4l on peer0 with examples/wire/ptp4l.cfg and clksim with
# examples/wire/demo.yaml on clk0, then shows what each side learnt:
# ptp4l's grandmaster at the negotiation peer (clkpeer) and clksim's
# grandmaster in ptp4l's parent data set and ptp4l locked to clksim's Syncs
# (pmc). Everything goes with the
# namespaces when it ends.
#   wire-demo.sh [--there 'NETEM'] [--back 'NETEM']
# impair the link with tc netem (scripts/netem.sh): --there what ptp4l sends,
# --back what the card sends, e.g. --there 'delay 200us 20us loss 1%'.
set -euo pipefail
cd "$(dirname "$0")/.."
there='' back=''
while [ $# -gt 0 ]; do
  case $1 in
    --there) there=$2; shift 2 ;;
    --back) back=$2; shift 2 ;;
    *) echo "usage: wire-demo.sh [--there 'NETEM'] [--back 'NETEM']" >&2; exit 2 ;;
  esac
done

if [ -z "${FWM_DEMO_INSIDE:-}" ]; then
  bash scripts/deps.sh core tools interop >&2
  cmake -S . -B build/clksim -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFWMCLK_BUILD_TESTS=OFF >/dev/null
  cmake --build build/clksim -j "$(nproc)" --target clksim clkpeer >&2
  if unshare -rn true 2>/dev/null; then ns=(unshare -rn); else ns=(unshare -n); fi
  FWM_DEMO_INSIDE=1 exec timeout -k 5 60 "${ns[@]}" "$0" ${there:+--there "$there"} ${back:+--back "$back"}
fi

bin=build/clksim/tools
tmp=$(mktemp -d)
pids=()
trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null || true; rm -rf "$tmp"' EXIT

# 1. The link: clk0 in this namespace, peer0 in one held by `sleep`.
ip link set lo up
ip link add clk0 type veth peer name peer0
unshare -n sleep 60 &
holder=$!
pids+=("$holder")
while [ "$(readlink /proc/$holder/ns/net)" = "$(readlink /proc/self/ns/net)" ]; do sleep 0.05; done
ip link set peer0 netns "$holder"
ip addr add 192.168.77.1/24 dev clk0 && ip link set clk0 up
nsenter -t "$holder" -n sh -c 'ip link set lo up; ip addr add 192.168.77.2/24 dev peer0; ip link set peer0 up'
# shellcheck disable=SC2086 # netem's arguments are words
[ -z "$there" ] || nsenter -t "$holder" -n bash scripts/netem.sh peer0 $there
# shellcheck disable=SC2086
[ -z "$back" ] || bash scripts/netem.sh clk0 $back

# 2. ptp4l on the far end: priority1 100, and clockClass 248 so that it may also follow a better master.
nsenter -t "$holder" -n ptp4l -f examples/wire/ptp4l.cfg -i peer0 -m -q --clockClass 248 --uds_address "$tmp/ptp4l.sock" \
  >"$tmp/ptp4l.log" 2>&1 &
pids+=($!)

# 3. The line card: clkpeer as its negotiation peer, clksim with both ports on clk0.
"$bin/clkpeer/clkpeer" --listen 127.0.0.1:39011 &
pids+=($!)
"$bin/clksim/clksim" --peer 127.0.0.1:39011 --colour never examples/wire/demo.yaml >"$tmp/clksim.txt" 2>&1 &
sim=$!
pids+=("$sim")

sleep 18
echo "== ptp4l's parent data set (pmc), with clksim's master port announcing:"
nsenter -t "$holder" -n pmc -u -b 0 -d 24 -s "$tmp/ptp4l.sock" -i "$tmp/pmc" 'GET PARENT_DATA_SET' |
  grep -E 'grandmasterIdentity|grandmasterPriority1|gm.ClockClass'
echo "== ptp4l locked to clksim's master port (pmc):"
nsenter -t "$holder" -n pmc -u -b 0 -d 24 -s "$tmp/ptp4l.sock" -i "$tmp/pmc.time" 'GET TIME_STATUS_NP' 'GET CURRENT_DATA_SET' |
  grep -E 'master_offset|gmIdentity|meanPathDelay'
wait "$sim" || true
echo "== clksim: the first announces each way, and the summary:"
grep -E 'wire +rx [0-9]+/[0-9]+ clk0 announce' "$tmp/clksim.txt" | head -n 2 | cut -c1-180
grep -E 'wire +tx [0-9]+/[0-9]+ clk0 announce' "$tmp/clksim.txt" | head -n 2 | cut -c1-180
tail -n 4 "$tmp/clksim.txt"
echo "== ptp4l:"
cat "$tmp/ptp4l.log"
