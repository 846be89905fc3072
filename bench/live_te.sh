#!/usr/bin/env bash
# Live time error: ptp4l, free running on the machine's clock, is grandmaster
# (software stamps, UDP/IPv4, 16 Syncs and Delay_Reqs a second) on two veth
# pairs: one to a clksim slave port whose engine runs 50 ppm fast and starts
# 1 ms ahead (examples/wire/slave-servo.yaml), one to a ptp4l slave that only
# measures. After the lock, for SECONDS: the card's RMS and max|TE| against
# the machine's clock beside the RMS and max of ptp4l's own offset in the same
# run. Then, where the kernel has netem, a one-way delay D = 200 us on the
# grandmaster's side: the card's mean TE with D, and with D/2 programmed as
# asymmetry.
#   bench/live_te.sh [SECONDS] [--rows]   (60 by default; --rows: report.sh's table rows only)
# Runs in a network namespace of its own (unshare -rn, or as root unshare -n).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
rows=${2:-}
command -v ptp4l >/dev/null || { echo "live_te: no ptp4l (scripts/deps.sh interop)" >&2; exit 1; }

source bench/in-netns.sh

tmp=$(mktemp -d)
pids=()
trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null || true; rm -rf "$tmp"' EXIT
ip link set lo up
unshare -n sleep $((seconds + 60)) &
holder=$!
pids+=("$holder")
while [ "$(readlink /proc/$holder/ns/net)" = "$(readlink /proc/self/ns/net)" ]; do sleep 0.05; done
# In the foreground only: put in the background, $! would be the subshell
# running the function, and killing it would leave the command running.
peer() { nsenter -t "$holder" -n "$@"; }
peer ip link set lo up
for i in 0 1; do
  ip link add "clk$i" type veth peer name "peer$i"
  ip link set "peer$i" netns "$holder"
  ip addr add "192.168.7$((7 + i)).1/24" dev "clk$i" && ip link set "clk$i" up
  peer ip addr add "192.168.7$((7 + i)).2/24" dev "peer$i" && peer ip link set "peer$i" up
done
rate=(--logSyncInterval -4 --logMinDelayReqInterval -4)
nsenter -t "$holder" -n ptp4l -f examples/wire/ptp4l.cfg -i peer0 -i peer1 -q "${rate[@]}" >"$tmp/gm.log" 2>&1 &
pids+=($!)
# Every offset ptp4l measures, from the lock on.
ptp4l -f examples/wire/ptp4l.cfg -i clk1 -m -q --slaveOnly 1 --summary_interval -4 "${rate[@]}" >"$tmp/slave.log" 2>&1 &
pids+=($!)
sed "0,/advance: 6s/s//advance: ${seconds}s/" examples/wire/slave-servo.yaml >"$tmp/servo.yaml"
"$clksim" --live 0:3=clk0 --format jsonl "$tmp/servo.yaml" >"$tmp/sim.jsonl" 2>"$tmp/sim.err" &
sim=$!
pids+=("$sim")
netem=no
if peer bash scripts/netem.sh --check; then
  until grep -q '"one-way delay on the link' "$tmp/sim.jsonl"; do kill -0 "$sim" && sleep 0.1 || break; done
  # ptp4l's offsets of the stretch the card is judged on end here.
  wc -l <"$tmp/slave.log" >"$tmp/slave.lines"
  peer bash scripts/netem.sh peer0 delay 200us
  netem=yes
fi
wait "$sim"
python3 - "$tmp" "$seconds" "$netem" "$rows" <<'PY'
import json, math, re, sys
tmp, seconds, netem, rows = sys.argv[1], int(sys.argv[2]), sys.argv[3] == "yes", sys.argv[4] == "--rows"
notes = [json.loads(l).get("text", "") for l in open(f"{tmp}/sim.jsonl")]
te = [re.search(r"mean (-?\d+) ns, RMS (\d+) ns, max\|TE\| (\d+) ns", n) for n in notes
      if n.startswith("time error of unit 0 over ")]
te = [tuple(int(x) for x in m.groups()) for m in te]
locked = any(n.startswith("servo 0:3 locked") for n in notes)
# ptp4l's own: the offsets it printed during the card's steady stretch (the
# last `seconds` before the delay, or before the end without netem).
lines = open(f"{tmp}/slave.log").read().splitlines()
try:
    lines = lines[:int(open(f"{tmp}/slave.lines").read())]
except FileNotFoundError:
    pass
offs = [int(m.group(1)) for m in (re.search(r"master offset +(-?\d+)", l) for l in lines) if m]
offs = offs[-16 * seconds:]
rms = math.sqrt(sum(o * o for o in offs) / len(offs)) if offs else float("nan")
peak = max((abs(o) for o in offs), default=float("nan"))
card = te[1] if len(te) > 1 else (0, 0, 0)
out = [(f"live, veth, software stamps, {seconds} s locked: card's TE RMS / max (ns)", f"{card[1]} / {card[2]}"),
       (f"  ptp4l slave's offset on the same grandmaster, same run: RMS / max (ns)", f"{rms:.0f} / {peak:.0f}"),
       ("  card's RMS / ptp4l's", f"{card[1] / rms:.2f}" if offs and rms else "n/a")]
if netem and len(te) == 6:
    out += [("  one-way delay D = 200 us: card's mean TE (ns; -D/2 expected)", f"{te[3][0]}"),
            ("  and with D/2 programmed as asymmetry (ns; 0 expected)", f"{te[5][0]}")]
else:
    out += [("  one-way delay D = 200 us (tc netem)", "n/a: no netem in this kernel")]
if not locked:
    out.insert(0, ("live servo", "never locked"))
if rows:
    for f, v in out: print(f"{f}\t{v}")
else:
    print("live time error: ptp4l grandmaster -> clksim slave port (+50 ppm) and a ptp4l slave, 16 Syncs/s")
    for f, v in out: print(f"  {f:72s} {v}")
PY
