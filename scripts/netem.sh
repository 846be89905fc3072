#!/usr/bin/env bash
# Impairs what one network interface sends with tc netem: on one end of a
# veth pair that is one direction of the link only; on both ends, both.
#   netem.sh IFACE NETEM-ARGS...   e.g. netem.sh peer0 delay 200us 20us loss 1%
#   netem.sh IFACE off             the interface's default queue again
#   netem.sh --check               exit 0 when the kernel has netem
# Run it in the interface's namespace (nsenter -t PID -n bash netem.sh ...).
set -euo pipefail

if [ "${1:-}" = --check ]; then
  probe=fwmnetem$$
  ip link add name "$probe" type dummy 2>/dev/null || exit 1
  ok=0
  tc qdisc add dev "$probe" root netem delay 1us 2>/dev/null || ok=1
  ip link del "$probe"
  exit $ok
fi
[ $# -ge 2 ] || { echo "usage: netem.sh IFACE NETEM-ARGS... | netem.sh IFACE off | netem.sh --check" >&2; exit 2; }
iface=$1; shift
if [ "$1" = off ]; then
  tc qdisc del dev "$iface" root 2>/dev/null || true
  exit 0
fi
if ! out=$(tc qdisc replace dev "$iface" root netem "$@" 2>&1); then
  echo "netem.sh: $iface: $out" >&2
  exit 1
fi
