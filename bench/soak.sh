#!/usr/bin/env bash
# The soak run under ASan and UBSan (bench/soak/soak.cpp): 384 enabled Mira
# ports, an announce change every 3 s, for a virtual day (or the hours given).
# Not part of CI; its figures go into the benchmark report. ASan's quarantine
# of freed memory is kept small (16 MB, not 256): filling the default one takes
# hours of this run and would hide any growth of the process behind it.
# Usage: bench/soak.sh [hours]
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/soak -G Ninja -DCMAKE_BUILD_TYPE=Debug -DFWMCLK_SANITIZE=address,undefined \
  -DFWMCLK_BUILD_BENCH=ON -DFWMCLK_BUILD_TESTS=OFF -DFWMCLK_WERROR=ON >/dev/null
cmake --build build/soak --target soak
ASAN_OPTIONS="${ASAN_OPTIONS:-quarantine_size_mb=16}" build/soak/bench/soak "${1:-24}"
