#!/usr/bin/env bash
# Event-path benchmark: two engine ports of one clksim on a veth pair, port
# 0:0 MASTER sending two-step Syncs 128 times a second and answering
# Delay_Req, port 0:1 SLAVE measuring them and sending Delay_Req 128 times a
# second. Prints the CPU time per event message (sent or received: Sync,
# Follow_Up, Delay_Req, Delay_Resp; library, engine, wire thread and trace),
# as the run less an identical run with the event messages switched off (once
# with the card's records written, once with only its summary), and
# the spread of the software time stamps: mean and standard deviation of
# t2 - t1 over the first 1,000 Syncs. Then the same exchange between a ptp4l
# master and a ptp4l slave on the same link (free_running, software stamps,
# no log): its messages (PORT_STATS_NP) and CPU time over SECONDS once the
# slave measures, and the card's CPU per message as a multiple of ptp4l's:
# with its trace written to a file (ptp4l writes none), and without.
#   bench/event.sh [SECONDS] [--rows]   (9 by default; --rows: report.sh's table rows only)
# Runs in a network namespace of its own (unshare -rn, or as root unshare -n).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-9}
rows=${2:-}

source bench/in-netns.sh

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
scenario() {  # <events on: 1|0>
  echo "name: event-bench"
  echo "description: a MASTER and a SLAVE port of one card on a veth pair."
  echo "board: {chipType: 31, engines: 1}"
  echo "steps:"
  echo "  - notify: startup"
  for p in 0 1; do
    echo "  - set_ptp_pkt_encap: {unit: 0, port: $p, targetBoard: 3, encapType: 0}"
    echo "  - set_ptp_port_cfg: {unit: 0, port: $p, enable: 1, portState: $((p ? 9 : 6)), domainNumber: 24, ifIndex: $p}"
    echo "  - set_ptp_tx_src_port_id: {unit: 0, port: $p, identity: [0x001b19ff, 0xfe00000$p, $((p + 1))]}"
  done
  if [ "$1" = 1 ]; then
    echo "  - set_ptp_rx_ctl: {unit: 0, port: 0, pktType: 3, rxEnable: 1}"
    echo "  - set_ptp_tx_ctl: {unit: 0, port: 0, pktType: 4, txEnable: 1, interval: 0}"
    echo "  - set_ptp_tx_ctl: {unit: 0, port: 0, pktType: 8, txEnable: 1}"
    echo "  - set_ptp_rx_ctl: {unit: 0, port: 1, pktType: 1, rxEnable: 1}"
    echo "  - set_ptp_rx_ctl: {unit: 0, port: 1, pktType: 4, rxEnable: 1}"
    echo "  - set_ptp_tx_ctl: {unit: 0, port: 1, pktType: 3, txEnable: 1, interval: 0}"
    echo "  - set_ptp_tx_ctl: {unit: 0, port: 0, pktType: 1, txEnable: 1, interval: 0}"
  fi
  echo "  - advance: ${seconds}s"
}

ip link set lo up
ip link add evA type veth peer name evB
ip link set evA up && ip link set evB up
TIMEFORMAT='%U %S'
# Runs: 1 events on, every record written; q events on, only the summary
# written (--only note, and this scenario has no notes: the records are still
# made and counted); 0 events off.
for run in 1 q 0; do
  on=1 only=()
  [ "$run" = 1 ] || on=0
  [ "$run" != q ] || on=1 only=(--only note)
  scenario $on >"$tmp/bench$run.yaml"
  { time "$clksim" --live 0:0=evA --live 0:1=evB --format jsonl "${only[@]}" "$tmp/bench$run.yaml" \
      >"$tmp/run$run.jsonl"; } 2>"$tmp/time$run"
done
# ptp4l, both ends, Sync and Delay_Req at 128/s: once the slave measures,
# its messages and CPU time (user and system ticks) at two moments SECONDS apart.
ptp4l_run() {
  for side in A B; do
    cat >"$tmp/$side.cfg" <<EOF
[global]
domainNumber 24
free_running 1
time_stamping software
network_transport L2
delay_mechanism E2E
logSyncInterval -7
logMinDelayReqInterval -7
logAnnounceInterval 0
announceReceiptTimeout 2
slaveOnly $([ $side = B ] && echo 1 || echo 0)
priority1 $([ $side = A ] && echo 90 || echo 128)
use_syslog 0
verbose 0
EOF
  done
  local pids=()
  for side in A B; do
    ptp4l -f "$tmp/$side.cfg" -i ev$side -q --uds_address "$tmp/$side.sock" >"$tmp/ptp4l$side.log" 2>&1 &
    pids+=($!)
  done
  snapshot() {
    for side in A B; do
      pmc -u -b 0 -d 24 -s "$tmp/$side.sock" -i "$tmp/pmc$side.sock" 'GET PORT_STATS_NP' 2>/dev/null
    done >"$tmp/stats$1"
    for p in "${pids[@]}"; do awk '{ t += $14 + $15 } END { print t / 100 }' "/proc/$p/stat"; done >"$tmp/time$1"
  }
  sleep 6
  snapshot p0
  sleep "$seconds"
  snapshot p1
  kill "${pids[@]}" && wait "${pids[@]}" 2>/dev/null || true
}
command -v ptp4l >/dev/null && command -v pmc >/dev/null && ptp4l_run
python3 - "$tmp" "$rows" <<'PY'
import json, statistics, sys
tmp, rows = sys.argv[1], sys.argv[2] == "--rows"
cpu = lambda on: sum(float(x) for x in open(f"{tmp}/time{on}").read().split())
records = [json.loads(l) for l in open(f"{tmp}/run1.jsonl")]
summary = records[-1]
messages = summary["wireSent"] + summary["wireReceived"]
t21 = [int(r["text"].split()[4]) for r in records
       if r.get("kind") == "wire" and r["text"].startswith("measure ") and " t2-t1 " in r["text"]][:1000]
per = (cpu(1) - cpu(0)) / max(messages, 1) * 1e6
quiet = json.loads(open(f"{tmp}/runq.jsonl").read().splitlines()[-1])
per_quiet = (cpu("q") - cpu(0)) / max(quiet["wireSent"] + quiet["wireReceived"], 1) * 1e6
mean = statistics.mean(t21) if t21 else 0.0
sd = statistics.pstdev(t21) if len(t21) > 1 else 0.0
def ptp4l_messages(run):
    try:
        return sum(int(l.split()[1]) for l in open(f"{tmp}/stats{run}")
                   if l.split() and l.split()[0] in {d + "_" + m for d in ("rx", "tx")
                                                     for m in ("Sync", "Follow_Up", "Delay_Req", "Delay_Resp")})
    except (OSError, IndexError, ValueError):
        return 0
ptp4l_n = ptp4l_messages("p1") - ptp4l_messages("p0")
ptp4l_per = (cpu("p1") - cpu("p0")) / ptp4l_n * 1e6 if ptp4l_n > 0 else 0.0
ratio = f"{per / ptp4l_per:.2f}x" if ptp4l_per > 0 else "n/a"
ratio_quiet = f"{per_quiet / ptp4l_per:.2f}x" if ptp4l_per > 0 else "n/a"
if rows:
    print(f"event path: CPU per message sent or received, trace included\t{per:.1f} us")
    print(f"event path: CPU per message, the card writing a record of each / ptp4l ({per:.1f} / {ptp4l_per:.1f} us)"
          f"\t{ratio}")
    print(f"event path: CPU per message, card / ptp4l doing the same, neither writing a record of each"
          f" ({per_quiet:.1f} / {ptp4l_per:.1f} us)\t{ratio_quiet}")
    print(f"t2 - t1 over {len(t21)} Syncs on a veth pair, software stamps: mean / std dev\t{mean:.0f} / {sd:.0f} ns")
else:
    print("event benchmark: 2 ports on a veth pair, Sync and Delay_Req at 128/s")
    print(f"  messages sent and received  {messages:8d}")
    print(f"  CPU, events on / off        {cpu(1):8.2f} s / {cpu(0):.2f} s")
    print(f"  CPU per event message       {per:8.1f} us")
    print(f"  ptp4l, the same: messages {ptp4l_n}, CPU {cpu('p1') - cpu('p0'):.2f} s, "
          f"per message {ptp4l_per:.1f} us")
    print(f"  card / ptp4l per message    {ratio:>8s}")
    print(f"  the same, records unwritten {ratio_quiet:>8s} ({per_quiet:.1f} us, summary only)")
    print(f"  t2 - t1 over {len(t21)} Syncs   mean {mean:.0f} ns, std dev {sd:.0f} ns, "
          f"min {min(t21, default=0)}, max {max(t21, default=0)}")
PY
