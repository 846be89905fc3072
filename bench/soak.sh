#!/usr/bin/env bash
# The soak run under ASan and UBSan (bench/soak/soak.cpp): 384 enabled Mira
# ports, an announce change every 3 s, for a virtual day (or the hours given).
# Not part of CI; its figures go into the benchmark report.
# Usage: bench/soak.sh [hours]
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/soak -G Ninja -DCMAKE_BUILD_TYPE=Debug -DFWMCLK_SANITIZE=address,undefined \
  -DFWMCLK_BUILD_BENCH=ON -DFWMCLK_BUILD_TESTS=OFF -DFWMCLK_WERROR=ON >/dev/null
cmake --build build/soak --target soak
build/soak/bench/soak "${1:-24}"
