#!/usr/bin/env bash
# Runs every test: the dev build (ASan/UBSan) on this machine, the whole
# suite under ThreadSanitizer, clksim under memcheck, each fuzz target for a
# bounded time, the armhf cross build under qemu-arm, the installed library's
# consumers and packages, the tools on armhf, the interop tests against
# linuxptp, and the release build with its performance report. Installs what
# it needs first. Each stage beyond the presets is a script of scripts/ci/.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc)
run_preset() {
  local preset=$1; shift
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs" "$@"
}

# Each stage's wall time, printed at the end whether or not a stage failed:
# the whole run must stay well inside CI's limit, and this shows where it goes.
times=()
trap 'printf "%s\n" "${times[@]}"' EXIT
stage() {
  local name=$1 start=$SECONDS; shift
  "$@"
  times+=("$(printf 'stage %-12s %5d s' "$name" $((SECONDS - start)))")
}

stage deps bash scripts/deps.sh core cross tools cross-tools check
stage dev run_preset dev -LE interop
stage tsan bash scripts/ci/tsan.sh
stage memcheck bash scripts/ci/memcheck.sh
stage fuzz bash scripts/ci/fuzz.sh
. scripts/ci/dev-only.sh
stage armhf run_preset armhf -LE 'interop|browser' -E "$dev_only"
stage consumer bash scripts/ci/consumer.sh
stage armhf-tools bash scripts/ci/armhf-tools.sh
stage interop bash scripts/ci/interop.sh
stage release bash scripts/ci/release.sh
