#!/usr/bin/env bash
# The card as a live boundary clock, each neighbour in a namespace of its own on a veth pair:
#   ptp4l GM1 - clk0 [0:3, card port 1] ... [1:5, card port 2] clk1 - ptp4l slave (slave only)
#   ptp4l GM2 - clk2 [0:4, card port 3], started for the second drill
#   bc.sh CLKSIM EXAMPLES_DIR udp|l2   (udp: default profile, domain 0; l2: telecom, Ethernet, domain 24)
# ptp4l free running with software stamps. Exit 77 (skipped) without ptp4l/pmc or namespaces.
set -euo pipefail
. "$(dirname "$0")/../../scripts/netns.sh"

[ -n "${FWM_INTEROP_INSIDE:-}" ] || { command -v ptp4l && command -v pmc; } >/dev/null ||
  { echo "bc: no ptp4l/pmc (scripts/deps.sh interop)"; exit 77; }
enter_netns bc "$0" "$@"

clksim=$1 examples=$2 transport=${3:-udp}
harness "$(mktemp -d)" '*.log'
card=001b19.fffe.0c0001 gm1=7c2e0d.fffe.000100 gm2=7c2e0d.fffe.000200
cp "$examples/boundary.yaml" "$tmp/"
domain=0 opts=(--network_transport UDPv4)
if [ "$transport" = l2 ]; then
  domain=24 opts=(--network_transport L2 --ptp_dst_mac 01:80:C2:00:00:0E --dataset_comparison G.8275.x
    --G.8275.defaultDS.localPriority 128)
  sed -i -e 's/encapType: 2/encapType: 0/; s/destIp: 224.0.1.129/destMac: 01:80:c2:00:00:0e/' \
    -e 's/profile: default/profile: telecom/; s/domainNumber: 0/domainNumber: 24/' "$tmp/boundary.yaml"
fi
opts+=(--domainNumber "$domain" --logSyncInterval -4 --logMinDelayReqInterval -4)

ip link set lo up && ns_new gm1ns && ns_new slavens && ns_new gm2ns
nss=("$gm1ns" "$slavens" "$gm2ns")
for i in 0 1 2; do ns_link . "clk$i" "192.168.7$((7 + i)).1" "${nss[i]}" "peer$i" "192.168.7$((7 + i)).2"; done

ptp4l_in() {  # NS NAME IFACE [options...]
  local ns=$1 name=$2 iface=$3; shift 3
  bg nsenter -t "$ns" -n ptp4l -f "$examples/ptp4l.cfg" -i "$iface" -m -q --uds_address "$tmp/$name.sock" "${opts[@]}" \
    "$@" >"$tmp/$name.log" 2>&1 && eval "pid_$name=\$!"
}
slave_pmc() { in_ns "$slavens" pmc -u -b 0 -d "$domain" -s "$tmp/slave.sock" -i "$tmp/pmc.$RANDOM" "$@" >"$tmp/pmc.log"; }
field() { awk -v k="$1" '$1 == k { print $2; exit }' "$tmp/pmc.log"; }
slave_names() { slave_pmc 'GET PARENT_DATA_SET' && [ "$(field grandmasterIdentity)" = "$1" ] &&
  { [ "$2" = - ] || [ "$(field gm.ClockClass)" = "$2" ]; }; }  # GM CLASS|-
stretches() { [ "$(grep -c '"time error of unit 0 over' "$tmp/sim.jsonl")" -ge "$1" ]; }

ptp4l_in "$gm1ns" gm1 peer0 --clockIdentity "$gm1" --clockClass 7
ptp4l_in "$slavens" slave peer1 --slaveOnly 1 --priority1 255 --summary_interval -4 --freq_est_interval 0 --clockIdentity 7c2e0d.fffe.000300
wait_for 10 grep -q 'to MASTER' "$tmp/gm1.log" || fail "ptp4l GM1 never became master"
bg "$clksim" --live 0:3=clk0 --live 1:5=clk1 --live 0:4=clk2 --format jsonl "$tmp/boundary.yaml" >"$tmp/sim.jsonl" \
  2>"$tmp/sim.log" && sim=$!

# The chain: the slave follows GM1 through the card's master port, one step further than the card.
wait_for 12 slave_names "$gm1" - || fail "the ptp4l slave does not name GM1: $(tr -s ' \n' ' ' <"$tmp/pmc.log")"
[ "$(field parentPortIdentity)" = "$card-2" ] || fail "parent $(field parentPortIdentity), not the card's port 2"
wait_for 12 stretches 1 || fail "clksim reports no time error"
grep -q '"servo 0:3 locked' "$tmp/sim.jsonl" || fail "the card's servo did not lock through port 1"
steps=$(grep '"kind":"decision"' "$tmp/sim.jsonl" | tail -n 1 | grep -o '"announcedStepsRemoved":[0-9]*' | grep -o '[0-9]*$')
slave_pmc 'GET CURRENT_DATA_SET'
[ "$(field stepsRemoved)" = $((steps + 1)) ] || fail "slave's stepsRemoved $(field stepsRemoved), card's $steps"
from=$(wc -l <"$tmp/slave.log")
wait_for 12 stretches 2 || fail "clksim ended early"
to=$(wc -l <"$tmp/slave.log")

# Drill: GM1 silent. The servo holds over within a few Syncs, the next announce carries the holdover
# class; once the port has timed out the card leads in holdover.
kill "$pid_gm1"
wait_for 3 slave_names "$gm1" 135 || fail "the slave does not see the card's holdover class"
wait_for 9 slave_names "$card" 135 || fail "the slave does not see the card leading in holdover"
# Drill: a better grandmaster on the card's port 3: its listening time, the card's decision, an announce.
ptp4l_in "$gm2ns" gm2 peer2 --clockIdentity "$gm2" --clockClass 6
wait_for 12 slave_names "$gm2" - || fail "the slave does not name GM2"
grep -q '"decision: 1 MASTER ([^)]*), 2 MASTER ([^)]*), 3 SLAVE' "$tmp/sim.jsonl" || fail "the card's port 3 is not SLAVE"
grep -q '"servo 0:3 follows 0:4 now' "$tmp/sim.jsonl" || fail "the servo did not follow port 3"
wait "$sim" || fail "clksim failed: $(tail -n 3 "$tmp/sim.jsonl")"

# The chain's time error over the locked stretch: the card's engines, and the offset the slave measured.
grep -o 'time error of unit [01] over [^"]*' "$tmp/sim.jsonl" | sed -n '3,4p'
sed -n "$((from + 1)),${to}p" "$tmp/slave.log" | awk '/master offset/ { o = $4; n++; s += o * o; if (o < 0) o = -o
    if (o > m) m = o } END { printf "ptp4l slave behind the card: %d offsets, RMS %.0f ns, max %d ns\n", n, sqrt(s / n), m
    exit !(n > 0 && s / n < 1e10) }' || fail "the slave's offset RMS from the card's port 2 beyond 100 us"
echo "bc over $transport: passed"
