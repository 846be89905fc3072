# Sourced by the interop scripts. `enter_netns NAME` re-runs the calling script
# inside a network namespace of its own (unprivileged through `unshare -rn`
# where the kernel allows it, as root otherwise), bounded to 55 s; exit 77
# (skipped) where no namespace can be made. Inside, `harness DIR GLOB...` sets
# up what every case needs: the scratch directory, the background processes
# ended with the script, and on failure the tail of each log matching GLOB.

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
