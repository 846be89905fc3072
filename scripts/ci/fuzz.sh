#!/usr/bin/env bash
# Runs every fuzz target of tests/fuzz for a bounded time, starting from its
# seeds (and dictionary); a crash, leak, sanitizer report or timeout fails.
# Findings are kept in build/fuzz/findings. FWMCLK_FUZZ_SECONDS sets the time
# per target (default 20).
set -euo pipefail
cd "$(dirname "$0")/../.."
bash scripts/deps.sh fuzz
seconds=${FWMCLK_FUZZ_SECONDS:-20}
echo "== fuzz (${seconds}s per target)"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
findings=build/fuzz/findings
rm -rf "$findings"
mkdir -p "$findings"
# ASan keeps freed blocks in a quarantine of 256 MB by default: filling it
# looks like growth to the check below. A small one still catches a use after
# free of the input just run, and lets what a target really keeps show.
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}quarantine_size_mb=8
# fuzz_one <exe>: one target's bounded run; its verdict and figures go to
# $findings/<name>.verdict, so that targets can run side by side.
fuzz_one() {
  local exe=$1 name work slack pid early late late_at verdict=ok
  name=${exe##*/fuzz_}
  work=$(mktemp -d)  # new inputs go here, never into the tree's seeds
  # libFuzzer's own watcher stops a run past 2 GB; on top, resident memory is
  # sampled at a third of the run and near its end, and must stay flat: what
  # a target keeps of every input shows as growth long before it kills.
  local args=(-max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -malloc_limit_mb=2048 -print_final_stats=1
              -artifact_prefix="$findings/$name-")
  [ -f "tests/fuzz/$name.dict" ] && args+=(-dict="tests/fuzz/$name.dict")
  # The C API target's board and library live across inputs, as on a card: the
  # ports and records its inputs create stay, so it may grow by what they made.
  slack=${FWMCLK_FUZZ_RSS_SLACK_MB:-64}
  [ "$name" != c_api ] || slack=$((slack * 4))
  "$exe" "${args[@]}" "$work" "tests/fuzz/corpus/$name" 2>"$findings/$name.log" &
  pid=$!
  rss() { awk '/^VmRSS:/ {print int($2 / 1024)}' "/proc/$pid/status" 2>/dev/null || echo 0; }
  sleep $((seconds / 3))
  early=$(rss)
  late_at=$((seconds - seconds / 3 - 2))
  [ "$late_at" -gt 0 ] && sleep "$late_at"
  late=$(rss)
  if ! wait "$pid"; then
    verdict=failed
  elif [ "$early" -gt 0 ] && [ "$late" -gt $((early + early / 4 + slack)) ]; then
    echo "resident memory grew from ${early} MB to ${late} MB during the run" >>"$findings/$name.log"
    verdict=grew
  fi
  {
    echo "-- $name: $verdict"
    [ "$verdict" != failed ] || tail -n 60 "$findings/$name.log"
    echo "resident memory ${early} MB at a third of the run, ${late} MB near its end"
    grep -E '^stat::number_of_executed_units|^#[0-9]+ +DONE' "$findings/$name.log" | tail -n 2 || true
  } >"$findings/$name.verdict"
  rm -rf "$work"
}
# Each target is one process on one core: as many run at once as there are cores.
targets=()
for exe in build/fuzz/tests/fuzz/fuzz_*; do [ -x "$exe" ] && targets+=("$exe"); done
cores=$(nproc)
for ((i = 0; i < ${#targets[@]}; i += cores)); do
  for exe in "${targets[@]:i:cores}"; do fuzz_one "$exe" & done
  wait
done
failed=()
for exe in "${targets[@]}"; do
  name=${exe##*/fuzz_}
  cat "$findings/$name.verdict"
  head -n 1 "$findings/$name.verdict" | grep -q ': ok$' || failed+=("$name")
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]} (see $findings)" >&2
  exit 1
fi
