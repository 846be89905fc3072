#!/usr/bin/env bash
# clksim's wire ports against linuxptp on a veth pair between two network
# namespaces that this script makes (unprivileged through `unshare -rn` where
# the kernel allows it, as root otherwise) and that vanish with it.
#   interop.sh CLKSIM CLKPEER EXAMPLES_DIR measure|servo [udp|l2]
# (The slave and master ports against ptp4l: bc.sh, the card as a whole.)
# Exit 77 (skipped) without ptp4l, tshark (measure) or namespaces.
set -euo pipefail
. "$(dirname "$0")/../../scripts/netns.sh"

if [ -z "${FWM_INTEROP_INSIDE:-}" ]; then
  command -v ptp4l >/dev/null && command -v pmc >/dev/null || { echo "interop: no ptp4l/pmc (scripts/deps.sh interop)"; exit 77; }
  [ "$4" != measure ] || command -v tshark >/dev/null || { echo "interop: no tshark (scripts/deps.sh interop)"; exit 77; }
fi
enter_netns interop "$0" "$@"

clksim=$1 clkpeer=$2 examples=$3 case=$4 transport=${5:-udp}
harness "$(mktemp -d)" '*.log' '*.jsonl'
# Over Ethernet: the same scenarios with encapsulation 0, ptp4l on L2.
cp "$examples"/*.yaml "$tmp"/
[ "$transport" = udp ] || sed -i 's/encapType: 2/encapType: 0/' "$tmp"/*.yaml
transport_opt=(--network_transport "$([ "$transport" = udp ] && echo UDPv4 || echo L2)")

# This namespace holds clksim on clk0; a second one, held by `sleep`, the peer side.
ip link set lo up
ip link add clk0 type veth peer name peer0
bg unshare -n sleep 60
holder=$!
apart() { [ "$(readlink "/proc/$holder/ns/net")" != "$(readlink /proc/self/ns/net)" ]; }
wait_for 5 apart || fail "no peer namespace"
ip link set peer0 netns "$holder"
peer() { nsenter -t "$holder" -n "$@"; }
ip addr add 192.168.77.1/24 dev clk0 && ip link set clk0 up
peer ip link set lo up && peer ip addr add 192.168.77.2/24 dev peer0 && peer ip link set peer0 up

ptp4l_start() {  # name priority1 clockIdentity [options...]
  local name=$1 p1=$2 id=$3; shift 3
  bg nsenter -t "$holder" -n ptp4l -f "$examples/ptp4l.cfg" -i peer0 -m -q --priority1 "$p1" --clockIdentity "$id" \
    --uds_address "$tmp/$name.sock" "${transport_opt[@]}" "$@" >"$tmp/$name.log" 2>&1
  eval "pid_$name=$!"
}

case $case in
  measure)
    # tshark counts what crosses clk0 while ptp4l is the grandmaster for six seconds.
    bg tshark -i clk0 -w "$tmp/wire.pcap" -q >"$tmp/tshark.log" 2>&1
    capture=$!
    wait_for 10 grep -q "Capturing on" "$tmp/tshark.log" || fail "tshark does not capture"
    bg "$clksim" --live 0:3=clk0 --format jsonl "$tmp/slave-measure.yaml" >"$tmp/sim.jsonl" 2>&1
    sim=$!
    configured() { grep '"kind":"step_end"' "$tmp/sim.jsonl" | grep -q '"name":"set_ptp_tx_ctl"'; }
    wait_for 5 configured || fail "clksim did not configure its port"
    ptp4l_start gm 100 7c2e0d.fffe.000100 --logSyncInterval -2
    sleep 6
    kill "$pid_gm"
    wait "$sim" || fail "clksim failed"
    sleep 1
    kill "$capture" && wait "$capture" || true
    tshark -r "$tmp/wire.pcap" -Y ptp -T fields -e ptp.v2.messagetype -e ptp.v2.sequenceid \
      -e ptp.v2.fu.preciseorigintimestamp.seconds -e ptp.v2.fu.preciseorigintimestamp.nanoseconds \
      -e ptp.v2.dr.receivetimestamp.seconds -e ptp.v2.dr.receivetimestamp.nanoseconds >"$tmp/wire.txt" 2>/dev/null
    python3 "$(dirname "$0")/measure_check.py" "$tmp/sim.jsonl" "$tmp/wire.txt" || fail "measurements disagree"
    ;;
  servo)
    # ptp4l grandmaster on two veth pairs: clk0 to the card, clk1 to a ptp4l slave that only measures;
    # D = 200 us one way (netem on peer0) from the note on, where the kernel has netem.
    ip link add clk1 type veth peer name peer1 && ip link set peer1 netns "$holder"
    ip addr add 192.168.78.1/24 dev clk1 && ip link set clk1 up
    peer ip addr add 192.168.78.2/24 dev peer1 && peer ip link set peer1 up
    rate=(--logSyncInterval -4 --logMinDelayReqInterval -4)
    ptp4l_start gm 100 7c2e0d.fffe.000100 -i peer1 "${rate[@]}"
    bg ptp4l -f "$examples/ptp4l.cfg" -i clk1 -m -q --slaveOnly 1 --uds_address "$tmp/s.sock" "${rate[@]}" >"$tmp/slave.log" 2>&1
    bg "$clksim" --live 0:3=clk0 --format jsonl "$tmp/slave-servo.yaml" >"$tmp/sim.jsonl" 2>&1
    sim=$! netem=$(dirname "$0")/../../scripts/netem.sh delayed=0
    if peer bash "$netem" --check && wait_for 30 grep -q '"one-way delay on the link' "$tmp/sim.jsonl"; then
      peer bash "$netem" peer0 delay 200us && delayed=1
    fi
    wait "$sim" || fail "clksim failed"
    grep -q '"servo 0:3 locked' "$tmp/sim.jsonl" || fail "the servo never locked"
    # Per stretch: lock, steady, delay settling, delay, asymmetry settling, asymmetry.
    grep -o 'time error of unit 0 over [^"]*' "$tmp/sim.jsonl" | tee "$tmp/te.log"
    { grep -o 'master offset.*' "$tmp/slave.log" || echo "ptp4l slave: no offsets"; } | tail -n 3
    awk -v d=$delayed '{ m[NR] = $10; p[NR] = $16 } END { exit !(NR == 6 && p[2] < 50000 &&
      (!d || (m[4] < -70000 && m[4] > -130000 && m[6] > -30000 && m[6] < 30000))) }' "$tmp/te.log" ||
      fail "TE out of bounds (steady max|TE| < 50 us; with D (netem: $delayed) mean -D/2, then 0, within 30 us)"
    ;;
  *) fail "unknown case $case" ;;
esac
echo "interop $case over $transport: passed"
