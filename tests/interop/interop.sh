#!/usr/bin/env bash
# clksim's wire ports against linuxptp on a veth pair between two network
# namespaces that this script makes (unprivileged through `unshare -rn` where
# the kernel allows it, as root otherwise) and that vanish with it.
#   interop.sh CLKSIM CLKPEER EXAMPLES_DIR slave|master|measure [udp|l2]
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

# An acknowledgement at the negotiation peer naming grandmaster $1 with class $2 and priority1 $3.
acked() { grep "\"grandmasterIdentity\":\"$1\"" "$tmp/peer.jsonl" | grep "\"clockClass\":$2," | grep -q "\"grandmasterPriority1\":$3,"; }
# ptp4l's parent data set names grandmaster $1 with priority1 $2 and class $3.
pmc_shows() {
  local out
  out=$(peer pmc -u -b 0 -d 24 -s "$tmp/slave.sock" -i "$tmp/pmc.$RANDOM" 'GET PARENT_DATA_SET')
  echo "$out" >"$tmp/pmc.log"
  grep -Eq "grandmasterIdentity +$1" <<<"$out" && grep -Eq "grandmasterPriority1 +$2\$" <<<"$out" &&
    grep -Eq "gm.ClockClass +$3\$" <<<"$out"
}

case $case in
  slave)
    bg "$clkpeer" --listen 127.0.0.1:39011 --format jsonl >"$tmp/peer.jsonl" 2>"$tmp/clkpeer.log"
    bg "$clksim" --live 0:3=clk0 --peer 127.0.0.1:39011 --format jsonl "$tmp/slave-port.yaml" >"$tmp/sim.jsonl" 2>&1
    ptp4l_start gm1 100 7c2e0d.fffe.000100
    wait_for 15 acked 7c2e0d.fffe.000100 6 100 || fail "no acknowledgement of ptp4l's grandmaster"
    kill "$pid_gm1"
    wait_for 12 acked 000000.0000.000000 0 0 || fail "no 'announce lost' acknowledgement after ptp4l stopped"
    ptp4l_start gm2 90 7c2e0d.fffe.000200
    wait_for 15 acked 7c2e0d.fffe.000200 6 90 || fail "no acknowledgement of the better grandmaster"
    ;;
  master)
    ptp4l_start slave 128 7c2e0d.fffe.000300 --slaveOnly 1
    bg "$clksim" --live 1:5=clk0 --format jsonl "$tmp/master-port.yaml" >"$tmp/sim.jsonl" 2>&1
    wait_for 14 pmc_shows 001b19.fffe.00a001 90 6 || fail "pmc does not show clksim's grandmaster"
    rewritten() { [ "$(grep '"kind":"step_end"' "$tmp/sim.jsonl" | grep -c '"name":"set_ptp_port_pkt"')" -ge 2 ]; }
    wait_for 20 rewritten || fail "the orchestrator never rewrote priority1"
    # Two announce intervals of one second, and the time pmc itself takes.
    wait_for 3 pmc_shows 001b19.fffe.00a001 80 6 || fail "pmc does not show priority1 80 within two announce intervals"
    # Locked to clksim's Syncs: for ten seconds ptp4l names its grandmaster, offset within 1 ms, delay in (0, 1 ms).
    for i in $(seq 10); do
      peer pmc -u -b 0 -d 24 -s "$tmp/slave.sock" -i "$tmp/pmc.t" 'GET TIME_STATUS_NP' 'GET CURRENT_DATA_SET' >"$tmp/pmc.log"
      awk '/gmIdentity/ { gm = $2 } /master_offset/ { o = $2 } /meanPathDelay/ { d = $2 }
        END { print "ptp4l: gm " gm " offset " o " delay " d; exit !(gm == "001b19.fffe.00a001" && o < 1e6 && o > -1e6 &&
                                                                  d > 0 && d < 1e6) }' "$tmp/pmc.log" >>"$tmp/locked.log" ||
        fail "ptp4l not locked to clksim's master port: $(tail -n 1 "$tmp/locked.log")"
      sleep 1
    done
    tail -n 1 "$tmp/locked.log"
    ;;
  measure)
    # tshark counts what crosses clk0 while ptp4l is the grandmaster for ten seconds.
    bg tshark -i clk0 -w "$tmp/wire.pcap" -q >"$tmp/tshark.log" 2>&1
    capture=$!
    wait_for 10 grep -q "Capturing on" "$tmp/tshark.log" || fail "tshark does not capture"
    bg "$clksim" --live 0:3=clk0 --format jsonl "$tmp/slave-measure.yaml" >"$tmp/sim.jsonl" 2>&1
    sim=$!
    configured() { grep '"kind":"step_end"' "$tmp/sim.jsonl" | grep -q '"name":"set_ptp_tx_ctl"'; }
    wait_for 5 configured || fail "clksim did not configure its port"
    ptp4l_start gm 100 7c2e0d.fffe.000100 --logSyncInterval -2
    sleep 10
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
