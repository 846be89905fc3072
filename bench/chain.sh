#!/usr/bin/env bash
# A chain of boundary cards on the wall clock: a ptp4l grandmaster (free
# running, software stamps, UDP/IPv4, 16 Syncs a second), then K = 1..KMAX
# clksim cards (examples/wire/boundary.yaml, port 1 up, port 2 down), then a
# ptp4l slave, each in a network namespace of its own, joined by veth pairs.
# Per K, over LOCKED seconds once every card had LOCK seconds to lock: each
# card's TE against the machine's clock (the engine that serves the next hop,
# as clksim reports it) and the slave's offset from the last card, end to end.
#   bench/chain.sh [KMAX [LOCK [LOCKED]]] [--rows]   (4, 14 and 20 by default)
# Figures only; nothing is asserted.
set -euo pipefail
cd "$(dirname "$0")/.."
rows=
args=()
for a in "$@"; do [ "$a" = --rows ] && rows=1 || args+=("$a"); done
kmax=${args[0]:-4} lock=${args[1]:-14} locked=${args[2]:-20}
command -v ptp4l >/dev/null || { echo "chain: no ptp4l (scripts/deps.sh interop)" >&2; exit 1; }

source bench/in-netns.sh
FWM_INTEROP_INSIDE=1 . scripts/netns.sh
harness "$(mktemp -d)" '*.log'
ip link set lo up
opts=(-f examples/wire/ptp4l.cfg -m -q --domainNumber 0 --logSyncInterval -4 --logMinDelayReqInterval -4)

# One run of K cards: "card1 RMS / max;card2 ... | slave RMS / max" on the standard output.
chain() {
  local k=$1 nodes=() i
  for i in $(seq 0 $((k + 1))); do ns_new holder && nodes+=("$holder"); done
  for i in $(seq 0 "$k"); do
    ns_link "${nodes[i]}" "d$i" "192.168.78.$((i == 0 ? 2 : 1))" "${nodes[i + 1]}" "u$i" \
      "192.168.77.$((i == k ? 2 : 1))"
  done
  bg nsenter -t "${nodes[0]}" -n ptp4l "${opts[@]}" -i d0 --clockIdentity 7c2e0d.fffe.000100 >"$tmp/gm.log" 2>&1
  wait_for 10 grep -q 'to MASTER' "$tmp/gm.log" || fail "ptp4l grandmaster never became master"
  for i in $(seq 1 "$k"); do
    sed -e "s/0c0001/0c000$i/; s/0xfe0c0001/0xfe0c000$i/" -e "0,/advance: 8s/s//advance: ${lock}s/" \
      -e "s/advance: 8s/advance: ${locked}s/; s/advance: 18s/advance: 1s/" examples/wire/boundary.yaml >"$tmp/c$i.yaml"
    bg nsenter -t "${nodes[i]}" -n "$clksim" --live "0:3=u$((i - 1))" --live "1:5=d$i" --format jsonl \
      "$tmp/c$i.yaml" >"$tmp/c$i.jsonl" 2>"$tmp/c$i.log"
  done
  bg nsenter -t "${nodes[k + 1]}" -n ptp4l "${opts[@]}" -i "u$k" --slaveOnly 1 --priority1 255 --summary_interval -4 --freq_est_interval 0 >"$tmp/slave.log" 2>&1
  # The slave's offsets of the last card's locked stretch.
  stretch() { [ "$(grep -c '"time error of unit 1 over' "$tmp/c$k.jsonl")" -ge "$1" ]; }
  wait_for $((lock + 10)) stretch 1 || fail "card $k reports no time error"
  local from to
  from=$(wc -l <"$tmp/slave.log")
  wait_for $((locked + 10)) stretch 2 || fail "card $k ended early"
  to=$(wc -l <"$tmp/slave.log")
  local cards=()
  for i in $(seq 1 "$k"); do
    cards+=("$(grep -o 'time error of unit 1 over [^"]*' "$tmp/c$i.jsonl" | sed -n 2p |
      sed -E 's/.*RMS (-?[0-9]+) ns, max\|TE\| ([0-9]+) ns.*/\1 \/ \2/')")
  done
  (IFS=';' && printf '%s | ' "${cards[*]}")
  sed -n "$((from + 1)),${to}p" "$tmp/slave.log" | awk '/master offset/ { o = $4; n++; s += o * o; if (o < 0) o = -o
    if (o > m) m = o } END { if (n) printf "%.0f / %d\n", sqrt(s / n), m; else print "n/a" }'
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  pids=()
}

[ -n "$rows" ] || printf "boundary cards in a chain (live, veth, software stamps, %s s locked; TE RMS / max in ns)\n" "$locked"
for k in $(seq 1 "$kmax"); do
  chain "$k" >"$tmp/row"
  line=$(cat "$tmp/row")
  if [ -n "$rows" ]; then
    printf "chain of %d boundary cards: per card TE RMS / max (ns)\t%s\n" "$k" "${line%% |*}"
    printf "  ptp4l slave at the end: offset RMS / max (ns)\t%s\n" "${line#*| }"
  else
    printf "  K=%d  cards: %-60s slave: %s\n" "$k" "${line%% |*}" "${line#*| }"
  fi
done
