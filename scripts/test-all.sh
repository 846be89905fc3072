#!/usr/bin/env bash
# Runs every test: the dev build (ASan/UBSan) on this machine, the whole
# suite under ThreadSanitizer, clksim under memcheck, each fuzz target for a
# bounded time, the armhf cross build under qemu-arm, the installed library's
# consumers and packages, the tools on armhf, the interop tests against
# linuxptp, and the release build with its performance report. Installs what
# it needs first. Each stage beyond the presets is a script of scripts/ci/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh core cross tools cross-tools check

jobs=$(nproc)
run_preset() {
  local preset=$1; shift
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs" "$@"
}

run_preset dev -LE interop
bash scripts/ci/tsan.sh
bash scripts/ci/memcheck.sh
bash scripts/ci/fuzz.sh
run_preset armhf -LE 'interop|browser'
bash scripts/ci/consumer.sh
bash scripts/ci/armhf-tools.sh
bash scripts/ci/interop.sh
bash scripts/ci/release.sh
