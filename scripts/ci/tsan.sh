#!/usr/bin/env bash
# The whole suite under ThreadSanitizer (the dev-only checks excepted, see
# dev-only.sh). Any report fails the test it came from.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/ci/dev-only.sh
jobs=$(nproc)
echo "== tsan"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS:-}"
ctest --preset tsan -j "$jobs" -E "$dev_only" -LE 'interop|browser' --timeout 600
