#!/usr/bin/env bash
# Served time: how well a linuxptp slave (software stamps, free_running 1, so
# it only measures) sees the time of a clksim master port, beside the same
# slave seeing a ptp4l master (free_running 1) on the same veth pair, in the
# same run. Both masters send two-step Syncs 16 times a second over UDP/IPv4
# and have the slave send Delay_Reqs as often; both stamp with the machine's
# clock, so the slave's master_offset is the error of what it is served.
# Rounds alternate between the two masters and are pooled: pmc reads
# TIME_STATUS_NP ten times a second for SECONDS per master and round, from 2 s
# after the slave first names that master its grandmaster. Prints the RMS
# and 95th percentile of master_offset per master and the card's as a multiple
# of ptp4l's.
#   bench/served.sh [SECONDS] [ROUNDS] [--rows]   (10 s x 3 rounds by default;
#                                                  --rows: report.sh's table rows only)
# Runs in network namespaces of its own (unshare -rn, or as root unshare -n).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-10}
rounds=${2:-3}
rows=${3:-}
command -v ptp4l >/dev/null && command -v pmc >/dev/null || {
  echo "served: no ptp4l/pmc (scripts/deps.sh interop)" >&2
  exit 1
}

source bench/in-netns.sh

tmp=$(mktemp -d)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$tmp"
}
trap cleanup EXIT
settle=2

cat >"$tmp/ptp4l.cfg" <<'EOF'
[global]
domainNumber		24
free_running		1
time_stamping		software
network_transport	UDPv4
delay_mechanism		E2E
logAnnounceInterval	0
logSyncInterval		-4
logMinDelayReqInterval	-4
announceReceiptTimeout	3
use_syslog		0
EOF
cat >"$tmp/card.yaml" <<'EOF'
name: served-master
description: Port 0 of unit 0, MASTER in domain 24 over UDP/IPv4, two-step Syncs 16 times a second.
board: {chipType: 31, engines: 1}
steps:
  - notify: startup
  - set_ptp_pkt_encap: {unit: 0, port: 0, targetBoard: 3, encapType: 2, destIp: 224.0.1.129, srcIp: 192.168.78.1}
  - set_ptp_port_cfg: {unit: 0, port: 0, enable: 1, portState: 6, domainNumber: 24, annTimeoutMultiple: 3, ifIndex: 1}
  - set_ptp_tx_src_port_id: {unit: 0, port: 0, identity: [0x001b19ff, 0xfe00a001, 1]}
  - set_ptp_port_pkt:
      unit: 0
      port: 0
      currentUtcOffset: 37
      grandmasterPriority1: 90
      grandmasterPriority2: 128
      clockClass: 6
      clockAccuracy: 0x21
      offsetScaledLogVariance: 0x4e5d
      grandmasterIdentity: 001b19.fffe.00a001
      stepsRemoved: 0
      timeSource: 0x20
  - set_ptp_tx_ctl: {unit: 0, port: 0, pktType: 2, txEnable: 1, interval: 7}
  - set_ptp_tx_ctl: {unit: 0, port: 0, pktType: 8, txEnable: 1, interval: 7}
  - set_ptp_rx_ctl: {unit: 0, port: 0, pktType: 3, rxEnable: 1}
  - set_ptp_tx_ctl: {unit: 0, port: 0, pktType: 4, txEnable: 1, interval: 3}
  - set_ptp_tx_ctl: {unit: 0, port: 0, pktType: 1, txEnable: 1, interval: 3}
  - advance: 3600s
EOF

# The card's side (srv0) here; the slave's (srv1) in a namespace held by `sleep`.
ip link set lo up
ip link add srv0 type veth peer name srv1
unshare -n sleep 100000 &
holder=$!
pids+=("$holder")
for _ in $(seq 50); do
  [ "$(readlink "/proc/$holder/ns/net")" != "$(readlink /proc/self/ns/net)" ] && break
  sleep 0.1
done
ip link set srv1 netns "$holder"
# In the foreground only: put in the background, $! would be the subshell
# running the function, and killing it would leave the command running.
peer() { nsenter -t "$holder" -n "$@"; }
ip addr add 192.168.78.1/24 dev srv0 && ip link set srv0 up
peer ip link set lo up && peer ip addr add 192.168.78.2/24 dev srv1 && peer ip link set srv1 up

# round <card|ptp4l> <n>: that master and a fresh slave; master_offset samples to $tmp/offsets.<master>.<n>
round() {
  local master
  if [ "$1" = card ]; then
    "$clksim" --live 0:0=srv0 --format jsonl "$tmp/card.yaml" >/dev/null 2>"$tmp/master.log" &
  else
    ptp4l -f "$tmp/ptp4l.cfg" -i srv0 -q --priority1 90 --clockIdentity 7c2e0d.fffe.00a002 \
      --uds_address "$tmp/master.sock" >"$tmp/master.log" 2>&1 &
  fi
  master=$!
  nsenter -t "$holder" -n ptp4l -f "$tmp/ptp4l.cfg" -i srv1 -q -s --clockIdentity 7c2e0d.fffe.000300 \
    --uds_address "$tmp/slave.sock" >"$tmp/slave.log" 2>&1 &
  local slave=$!
  # Each master's window opens once the slave has it as grandmaster and has
  # measured for a while (its path delay filter full): a ptp4l master takes
  # seconds longer than the card to claim the link, and a fixed wait would
  # give its rounds fewer and earlier samples.
  for _ in $(seq 150); do
    peer pmc -u -b 0 -d 24 -s "$tmp/slave.sock" -i "$tmp/pmc.sock" 'GET TIME_STATUS_NP' 2>/dev/null |
      grep -q 'gmPresent *true' && break
    sleep 0.1
  done
  sleep "$settle"
  # Ten queries a second through one pmc; the slave reports state SLAVE once it measures.
  for _ in $(seq $((seconds * 10))); do
    echo 'GET TIME_STATUS_NP'
    sleep 0.1
  done | peer pmc -u -b 0 -d 24 -s "$tmp/slave.sock" -i "$tmp/pmc.sock" 2>/dev/null |
    awk '/gmPresent/ { p = $2 } /master_offset/ { o = $2 } /gmIdentity/ { if (p == "true") print o }' \
      >"$tmp/offsets.$1.$2"
  kill "$master" "$slave" 2>/dev/null || true
  wait "$master" "$slave" 2>/dev/null || true
}

for n in $(seq "$rounds"); do
  if ((n % 2)); then round card "$n" && round ptp4l "$n"; else round ptp4l "$n" && round card "$n"; fi
done

python3 - "$tmp" "$rounds" "$seconds" "$rows" <<'PY'
import glob, math, sys
tmp, rounds, seconds, rows = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), sys.argv[4] == "--rows"
def stats(master):
    per, pooled = [], []
    for f in sorted(glob.glob(f"{tmp}/offsets.{master}.*")):
        v = [abs(int(x)) for x in open(f).read().split()]
        pooled += v
        per.append(math.sqrt(sum(x * x for x in v) / len(v)) if v else float("nan"))
    pooled.sort()
    rms = math.sqrt(sum(x * x for x in pooled) / len(pooled)) if pooled else float("nan")
    p95 = pooled[min(len(pooled) - 1, int(0.95 * len(pooled)))] if pooled else float("nan")
    return len(pooled), rms, p95, per
card, ref = stats("card"), stats("ptp4l")
ratio = lambda i: card[i] / ref[i] if ref[i] else float("nan")
if rows:
    print(f"served time, ptp4l slave's master_offset, card / ptp4l master: RMS ({card[1]:.0f} / {ref[1]:.0f} ns)"
          f"\t{ratio(1):.2f}x")
    print(f"served time, ptp4l slave's master_offset, card / ptp4l master: p95 ({card[2]:.0f} / {ref[2]:.0f} ns)"
          f"\t{ratio(2):.2f}x")
else:
    print(f"served time: {rounds} alternating rounds x {seconds} s per master, veth, UDP/IPv4, software stamps,"
          " 16 Syncs/s")
    for name, s in (("clksim master", card), ("ptp4l master", ref)):
        print(f"  {name:14s} samples {s[0]:5d}  RMS {s[1]:7.0f} ns  p95 {s[2]:7.0f} ns  "
              "rounds' RMS " + " ".join(f"{x:.0f}" for x in s[3]))
    print(f"  card / ptp4l   RMS {ratio(1):.2f}x  p95 {ratio(2):.2f}x")
PY
