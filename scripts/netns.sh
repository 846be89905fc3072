# Sourced by the interop tests (tests/interop) and bench/chain.sh.
# `enter_netns NAME` re-runs the calling script
# inside a network namespace of its own (unprivileged through `unshare -rn`
# where the kernel allows it, as root otherwise), bounded to 55 s; exit 77
# (skipped) where no namespace can be made. Inside, `harness DIR GLOB...` sets
# up what every case needs: the scratch directory, the background processes
# ended with the script, and on failure the tail of each log matching GLOB.
# `ns_new VAR` and `ns_link` make further namespaces and join them by veth.

enter_netns() {
  [ -z "${FWM_INTEROP_INSIDE:-}" ] || return 0
  local ns
  if unshare -rn true 2>/dev/null; then ns=(unshare -rn); elif unshare -n true 2>/dev/null; then ns=(unshare -n)
  else echo "$1: cannot make a network namespace"; exit 77; fi
  shift
  FWM_INTEROP_INSIDE=1 exec timeout -k 5 55 "${ns[@]}" "$@"
}

harness() {
  tmp=$1; shift
  log_globs=("$@")
  pids=()
  trap cleanup EXIT
  trap 'exit 1' INT TERM
}

cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  if [ -n "${failed:-}" ]; then
    for g in "${log_globs[@]}"; do for f in "$tmp"/$g; do [ -e "$f" ] && { echo "== $f"; tail -n 40 "$f"; }; done; done
  fi
  rm -rf "$tmp"
}

fail() { failed=1; echo "FAIL: $*"; exit 1; }
# Starts a command in the background (its redirections as given), to be ended with the script.
bg() { "$@" & pids+=($!); }

# Polls `cmd` every 0.1 s for at most `seconds`.
ms() { echo $(($(date +%s%N) / 1000000)); }
wait_for() {
  local deadline=$(($(ms) + $1 * 1000)); shift
  until "$@" >/dev/null 2>&1; do
    [ "$(ms)" -lt "$deadline" ] || return 1
    sleep 0.1
  done
}

# A namespace of its own, held by a `sleep` ended with the script; VAR gets
# the holder's pid, which `in_ns` and `ns_link` take (`.`: this namespace).
ns_new() {
  bg unshare -n sleep 300
  local ns_pid=$!
  apart() { [ "$(readlink "/proc/$1/ns/net")" != "$(readlink /proc/self/ns/net)" ]; }
  wait_for 5 apart "$ns_pid" || fail "no namespace for $1"
  nsenter -t "$ns_pid" -n ip link set lo up
  printf -v "$1" %s "$ns_pid"
}
in_ns() {
  local ns=$1; shift
  if [ "$ns" = . ]; then "$@"; else nsenter -t "$ns" -n "$@"; fi
}
# ns_link NS_A IFACE_A ADDR_A NS_B IFACE_B ADDR_B: a veth pair, each end up with its address in a /24.
ns_link() {
  ip link add "$2" type veth peer name "$5"
  [ "$1" = . ] || ip link set "$2" netns "$1"
  [ "$4" = . ] || ip link set "$5" netns "$4"
  in_ns "$1" ip addr add "$3/24" dev "$2" && in_ns "$1" ip link set "$2" up
  in_ns "$4" ip addr add "$6/24" dev "$5" && in_ns "$4" ip link set "$5" up
}
