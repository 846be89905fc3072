#!/usr/bin/env bash
# clkcheck on captures made here, on a veth pair between two network
# namespaces this script makes (as interop.sh does): linuxptp's ptp4l as
# master and slave with the G.8275.1 configuration or the default profile,
# and clksim's master port programmed by a scenario, each must keep its
# profile; the capture of a thing that breaks it must not.
#   clkcheck.sh CLKCHECK CLKSIM EXAMPLES_DIR g8275.1|default-e2e|clksim
# Exit 77 (skipped) without ptp4l, tshark or namespaces.
set -euo pipefail
. "$(dirname "$0")/../../scripts/netns.sh"

if [ -z "${FWM_INTEROP_INSIDE:-}" ]; then
  command -v ptp4l >/dev/null && command -v tshark >/dev/null || { echo "clkcheck: no ptp4l/tshark"; exit 77; }
fi
enter_netns clkcheck "$0" "$@"

clkcheck=$1 clksim=$2 examples=$3 case=$4
harness "$(mktemp -d)" '*.log' '*.txt'

ip link set lo up
ip link add clk0 type veth peer name peer0
bg unshare -n sleep 60
holder=$!
for _ in $(seq 50); do [ "$(readlink "/proc/$holder/ns/net")" != "$(readlink /proc/self/ns/net)" ] && break; sleep 0.1; done
ip link set peer0 netns "$holder"
peer() { nsenter -t "$holder" -n "$@"; }
ip addr add 192.168.77.1/24 dev clk0 && ip link set clk0 up
peer ip link set lo up && peer ip addr add 192.168.77.2/24 dev peer0 && peer ip link set peer0 up

# ptp4l, never adjusting a clock: name, role (master|slave), interface (peer0 is the other namespace's), options.
ptp4l_run() {
  local name=$1 role=$2 iface=$3 run=(); shift 3
  [ "$iface" = peer0 ] && run=(nsenter -t "$holder" -n)
  bg "${run[@]}" ptp4l -i "$iface" -m -q -S --free_running 1 --uds_address "$tmp/$name.sock" \
    $([ "$role" = master ] && echo "--masterOnly 1" || echo "-s") "$@" >"$tmp/$name.log" 2>&1
}
capture() {  # seconds: what crosses clk0, as dumpcap writes it (pcapng)
  tshark -i clk0 -a "duration:$1" -w "$tmp/wire.pcapng" -q >"$tmp/tshark.log" 2>&1 || fail "tshark did not capture"
}
profile=$case
case $case in
  g8275.1)
    # linuxptp's G.8275.1 configuration (its configs/G.8275.1.cfg, which minimal systems leave out), in the
    # profile's default domain.
    printf '%s\n' '[global]' 'dataset_comparison G.8275.x' 'G.8275.defaultDS.localPriority 128' \
      'maxStepsRemoved 255' 'logAnnounceInterval -3' 'logSyncInterval -4' 'logMinDelayReqInterval -4' \
      'G.8275.portDS.localPriority 128' 'ptp_dst_mac 01:80:C2:00:00:0E' 'network_transport L2' \
      'domainNumber 24' >"$tmp/G.8275.1.cfg"
    ptp4l_run gm master peer0 -f "$tmp/G.8275.1.cfg"
    ptp4l_run slave slave clk0 -f "$tmp/G.8275.1.cfg"
    capture 6
    ;;
  default-e2e)
    # Announces at the profile's fastest and the shortest receipt timeout, so that both sides start within seconds.
    ptp4l_run gm master peer0 -4 --logAnnounceInterval 0 --announceReceiptTimeout 2
    ptp4l_run slave slave clk0 -4 --logAnnounceInterval 0 --announceReceiptTimeout 2
    capture 10
    ;;
  clksim)
    # The example master port for eight seconds, before its rewrite, programmed for the default profile:
    # Syncs twice a second, and stepsRemoved 1 as a boundary clock announces a grandmaster not its own.
    sed -e '/advance: 15s/,$d; s/stepsRemoved: 0/stepsRemoved: 1/' \
      -e 's/pktType: 1, txEnable: 1, interval: 5/pktType: 1, txEnable: 1, interval: 6/' \
      "$examples/master-port.yaml" >"$tmp/master.yaml"
    echo "  - advance: 8s" >>"$tmp/master.yaml"
    ptp4l_run slave slave peer0 -f "$examples/ptp4l.cfg"
    bg "$clksim" --live 1:5=clk0 --pcap "$tmp/wire.pcap" --format jsonl "$tmp/master.yaml" >"$tmp/sim.log" 2>&1
    wait "${pids[-1]}" || fail "clksim failed"
    profile=default-e2e
    ;;
  *) fail "unknown case $case" ;;
esac
file=$(ls "$tmp"/wire.pcap*)
args=("$file" --profile "$profile")
[ "$case" != clksim ] || args+=(--programmed "$tmp/master.yaml")
"$clkcheck" "${args[@]}" >"$tmp/check.txt" 2>&1 || fail "clkcheck: $(grep '^clkcheck:' "$tmp/check.txt")"
grep -E '^(port|clkcheck:)|Sync|Announce|Delay' "$tmp/check.txt"
other=$([ "$profile" = g8275.1 ] && echo default-e2e || echo g8275.1)
"$clkcheck" "$file" --profile "$other" >"$tmp/other.txt" 2>&1 && fail "the capture keeps $other as well"
echo "clkcheck $case: passed"
