# Sourced by the network benchmarks, from the project root: builds clksim
# (unless CLKSIM names an existing build) and runs the calling script again
# inside a network namespace of its own (unshare -rn, or as root unshare -n).
# Inside, it returns and the script goes on.
clksim=${CLKSIM:-build/clksim/tools/clksim/clksim}
if [ -z "${FWM_BENCH_INSIDE:-}" ]; then
  if [ -z "${CLKSIM:-}" ]; then
    bash scripts/deps.sh core tools >&2
    cmake -S . -B build/clksim -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFWMCLK_BUILD_TESTS=OFF >/dev/null
    cmake --build build/clksim -j "$(nproc)" --target clksim >&2
  fi
  if unshare -rn true 2>/dev/null; then ns=(unshare -rn); else ns=(unshare -n); fi
  FWM_BENCH_INSIDE=1 exec "${ns[@]}" "$0" "$@"
fi
