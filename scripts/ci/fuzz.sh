#!/usr/bin/env bash
# Runs every fuzz target of tests/fuzz for a bounded time, starting from its
# seeds (and dictionary); a crash, leak, sanitizer report or timeout fails.
# Findings are kept in build/fuzz/findings. FWMCLK_FUZZ_SECONDS sets the time
# per target (default 50).
set -euo pipefail
cd "$(dirname "$0")/../.."
bash scripts/deps.sh fuzz
seconds=${FWMCLK_FUZZ_SECONDS:-40}
echo "== fuzz (${seconds}s per target)"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
findings=build/fuzz/findings
rm -rf "$findings"
mkdir -p "$findings"
failed=()
for exe in build/fuzz/tests/fuzz/fuzz_*; do
  [ -x "$exe" ] || continue
  name=${exe##*/fuzz_}
  work=$(mktemp -d)  # new inputs go here, never into the tree's seeds
  # No RSS watcher: its thread sleeps with the board's virtual sleep, which never
  # waits; single allocations are capped instead.
  args=(-max_total_time="$seconds" -timeout=20 -rss_limit_mb=0 -malloc_limit_mb=2048 -print_final_stats=1
        -artifact_prefix="$findings/$name-")
  [ -f "tests/fuzz/$name.dict" ] && args+=(-dict="tests/fuzz/$name.dict")
  echo "-- $name"
  if ! "$exe" "${args[@]}" "$work" "tests/fuzz/corpus/$name" 2>"$findings/$name.log"; then
    tail -n 60 "$findings/$name.log"
    failed+=("$name")
  fi
  grep -E '^stat::number_of_executed_units|^#[0-9]+ +DONE' "$findings/$name.log" | tail -n 2 || true
  rm -rf "$work"
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]} (see $findings)" >&2
  exit 1
fi
