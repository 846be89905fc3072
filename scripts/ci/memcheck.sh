#!/usr/bin/env bash
# clksim's story and every example scenario under valgrind's memcheck: any
# error or leak fails. The only suppressions (memcheck.supp) are the board's
# threads that by design are never joined.
set -euo pipefail
cd "$(dirname "$0")/../.."
bash scripts/deps.sh bench
echo "== memcheck"
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target clksim
clksim=build/release/tools/clksim/clksim
run() {
  echo "-- clksim $*"
  valgrind --quiet --error-exitcode=1 --leak-check=full --show-leak-kinds=definite,indirect,possible \
    --errors-for-leak-kinds=definite,indirect,possible --suppressions=scripts/ci/memcheck.supp \
    "$clksim" "$@" >/dev/null
}
run
for f in scenarios/*.yaml; do run "$f"; done
