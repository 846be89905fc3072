#!/usr/bin/env bash
# Builds the simulator and runs it; arguments go to clksim. Paths in them are
# the caller's: clksim runs in the directory the script was called from.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$root/scripts/deps.sh" core tools >&2
cmake -S "$root" -B "$root/build/clksim" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFWMCLK_BUILD_TESTS=OFF >/dev/null
cmake --build "$root/build/clksim" -j "$(nproc)" --target clksim clkpeer clkcheck >&2
exec "$root/build/clksim/tools/clksim/clksim" "$@"
