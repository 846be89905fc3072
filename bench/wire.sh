#!/usr/bin/env bash
# Wire benchmark: one clksim with 64 engine ports (units 0..7, ports 0..7) on
# 32 veth pairs, every port MASTER and announcing at interval -3 (8 a second)
# to its pair's other end, which receives them: both directions on every
# link. Prints announces sent and received, those lost, and the CPU time of
# the whole simulator (library, engine, wire thread and trace) per announce.
#   bench/wire.sh [SECONDS]      (60 by default; CI may run a short smoke)
# Runs in a network namespace of its own (unshare -rn, or as root unshare -n).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

source bench/in-netns.sh

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
live=()
{
  echo "name: wire-bench"
  echo "description: 64 wire ports announcing at interval -3 to each other."
  echo "board: {chipType: 40, engines: 8}"
  echo "steps:"
  echo "  - notify: startup"
  echo "  - notify: master_ip"
  for i in $(seq 0 63); do
    u=$((i / 8)) p=$((i % 8))
    echo "  - set_ptp_pkt_encap: {unit: $u, port: $p, targetBoard: 3, encapType: 2, dscp: 46, destIp: 224.0.1.129, srcIp: 192.168.77.1}"
    echo "  - set_ptp_port_cfg: {unit: $u, port: $p, enable: 1, portState: 6, domainNumber: 24, annTimeoutMultiple: 3, ifIndex: $i}"
    echo "  - set_ptp_rx_ctl: {unit: $u, port: $p, pktType: 2, rxEnable: 1}"
    printf '  - set_ptp_tx_src_port_id: {unit: %d, port: %d, identity: [0x001b19ff, 0xfe0000%02x, %d]}\n' $u $p $i $((p + 1))
    echo "  - set_ptp_port_pkt: {unit: $u, port: $p, grandmasterPriority1: 128, clockClass: 6, grandmasterIdentity: 001b19.fffe.00a001}"
  done
  # Every port receives before the first one sends.
  for i in $(seq 0 63); do
    echo "  - set_ptp_tx_ctl: {unit: $((i / 8)), port: $((i % 8)), pktType: 2, txEnable: 1, interval: 4}"
  done
  echo "  - advance: ${seconds}s"
} >"$tmp/bench.yaml"

ip link set lo up
for l in $(seq 0 31); do
  ip link add "w${l}a" type veth peer name "w${l}b"
  ip link set "w${l}a" up && ip link set "w${l}b" up
  live+=(--live "$((2 * l / 8)):$((2 * l % 8))=w${l}a" --live "$(((2 * l + 1) / 8)):$(((2 * l + 1) % 8))=w${l}b")
done

TIMEFORMAT='%U %S %R'
{ time "$clksim" "${live[@]}" --format jsonl "$tmp/bench.yaml" >"$tmp/run.jsonl"; } 2>"$tmp/time"
read -r user sys real <"$tmp/time"
summary=$(tail -n 1 "$tmp/run.jsonl")
field() { sed -E "s/.*\"$1\":([0-9]+).*/\\1/" <<<"$summary"; }
sent=$(field wireSent) received=$(field wireReceived) dropped=$(field wireDropped)
python3 - "$seconds" "$sent" "$received" "$dropped" "$user" "$sys" "$real" <<'PY'
import sys
secs, sent, rcvd, dropped = (int(x) for x in sys.argv[1:5])
user, system, real = (float(x) for x in sys.argv[5:8])
print(f"wire benchmark: 64 ports, interval -3, {secs} s (wall {real:.1f} s)")
print(f"  announces sent      {sent:8d}   (expected {64 * 8 * secs})")
print(f"  announces received  {rcvd:8d}   lost {sent - rcvd}, dropped {dropped}")
print(f"  CPU time            {user + system:8.2f} s   (user {user:.2f}, system {system:.2f})")
print(f"  CPU per announce    {(user + system) / max(sent + rcvd, 1) * 1e6:8.1f} us   (sent and received counted once each)")
PY
