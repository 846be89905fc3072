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
# One valgrind per core: each run is single-threaded in effect (valgrind
# serialises a process's threads), and the scenarios are independent.
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
run() {
  local name=$1; shift
  if valgrind --quiet --error-exitcode=1 --leak-check=full --show-leak-kinds=definite,indirect,possible \
    --errors-for-leak-kinds=definite,indirect,possible --suppressions=scripts/ci/memcheck.supp \
    "$clksim" "$@" >/dev/null 2>"$logs/$name.log"; then
    echo "-- clksim ${*:-(its story)}: clean" >"$logs/$name.verdict"
  else
    { echo "-- clksim ${*:-(its story)}: FAILED"; cat "$logs/$name.log"; } >"$logs/$name.verdict"
  fi
}
export -f run
export clksim logs
{
  echo story
  for f in scenarios/*.yaml; do echo "$(basename "$f" .yaml) $f"; done
} | xargs -P "$(nproc)" -L 1 bash -c 'run "$@"' _
failed=0
for v in "$logs"/*.verdict; do
  cat "$v"
  head -n 1 "$v" | grep -q ': clean$' || failed=1
done
exit "$failed"
