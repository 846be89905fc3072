#!/usr/bin/env bash
# The whole suite under ThreadSanitizer (the style checks excepted: they look
# at the sources, not at a build). Any report fails the test it came from.
set -euo pipefail
cd "$(dirname "$0")/../.."
jobs=$(nproc)
echo "== tsan"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS:-}"
ctest --preset tsan -j "$jobs" -E '^style\.' -LE 'interop|browser' --timeout 600
