#!/usr/bin/env bash
# The line card's own architecture: the release build of the library, the
# simulated board, clksim and clkpeer cross-built for armhf against Debian's
# multiarch :armhf libraries; the clksim story run under qemu-arm must tell
# what it tells on this machine; then the armhf packages, their contents and
# lintian (scripts/ci/check-debs.sh).
set -euo pipefail
cd "$(dirname "$0")/../.."
bash scripts/deps.sh core cross tools cross-tools package

cmake --preset package-armhf >/dev/null
cmake --build --preset package-armhf -j "$(nproc)"
cmake --preset package >/dev/null
cmake --build --preset package -j "$(nproc)" --target clksim

echo "== clksim story under qemu-arm"
# run-<tool>: the tool under the toolchain's emulator (qemu-arm).
version=$(sed -n 's/^project(fwmclk VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
for tool in clksim clkpeer; do
  [ "$("build/package-armhf/tools/run-$tool" --version)" = "$tool $version (libfwmclk.so.${version%%.*})" ]
done
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# Same requests, results, engine calls, log and debug lines, acknowledgement
# bytes and summary. Platform calls are left out: they carry pointers and
# allocation sizes, which differ with the word size; and the worker's and the
# orchestrator's events of one instant interleave as the threads run, so the
# events are compared as a set (each carries its step and time).
story() { "$@" --format jsonl | jq -c 'select(.kind != "call" or .layer != "platform") | del(.seq)
                                       | if .kind == "call" then del(.bytes) else . end' | sort; }
story build/package/tools/clksim/clksim > "$scratch/amd64"
story build/package-armhf/tools/run-clksim > "$scratch/armhf"
diff -u "$scratch/amd64" "$scratch/armhf"
grep -q '"kind":"summary"' "$scratch/armhf"
echo "armhf story: $(wc -l < "$scratch/armhf") events, the same as on $(dpkg --print-architecture)"

echo "== packages (armhf)"
rm -f build/package-armhf/*.deb
cpack --preset package-armhf >/dev/null
bash scripts/ci/check-debs.sh armhf build/package-armhf/*.deb
