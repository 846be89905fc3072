#!/usr/bin/env bash
# The interop stage: the simulated engine's wire ports against linuxptp's
# ptp4l and pmc, in network namespaces the tests make and remove.
set -euo pipefail
cd "$(dirname "$0")/../.."

bash scripts/deps.sh core tools interop
echo "== interop"
cmake --preset dev >/dev/null
cmake --build --preset dev --target clksim clkpeer clkcheck -j "$(nproc)"
ctest --preset dev -L interop --output-on-failure
