#!/usr/bin/env bash
# Runs every test: the dev build (ASan/UBSan) on this machine, the
# ThreadSanitizer build of the concurrent parts, then the armhf cross build
# under qemu-arm. Installs what it needs first.
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

run_preset dev
run_preset tsan -L concurrency
run_preset armhf
bash scripts/ci/consumer.sh
bash scripts/ci/armhf-tools.sh
bash scripts/ci/interop.sh
bash scripts/ci/release.sh
