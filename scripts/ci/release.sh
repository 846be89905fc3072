#!/usr/bin/env bash
# CI stage for the release preset: it must build (optimised, warnings as
# errors, benchmarks included), its tests must pass, and bench/report.sh must
# run to the end. The report's figures go to the log; they are not asserted,
# since wall-time figures depend on the machine the stage runs on.
set -euo pipefail
cd "$(dirname "$0")/../.."

bash scripts/deps.sh core cross tools bench

jobs=$(nproc)
echo "== release"
cmake --preset release >/dev/null
cmake --build --preset release -j "$jobs"
# The interop cases run in their own stage, on the dev build.
. scripts/ci/dev-only.sh
ctest --preset release -j "$jobs" -E "$dev_only" -LE 'interop|browser'
echo "== performance report"
bash bench/report.sh build/release --short
