#!/usr/bin/env bash
# Builds the simulator and runs it; arguments go to clksim.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh core tools >&2
cmake -S . -B build/clksim -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFWMCLK_BUILD_TESTS=OFF >/dev/null
cmake --build build/clksim -j "$(nproc)" --target clksim clkpeer >&2
exec build/clksim/tools/clksim/clksim "$@"
