#!/usr/bin/env bash
# The library as an integrator gets it: the release build installed into a
# temporary prefix; examples/host_example.c built against that copy once with
# find_package and once with pkg-config, and run on the installed simulated
# board; the installed tools report the one version; then the amd64 Debian
# packages, their contents and lintian (scripts/ci/check-debs.sh).
set -euo pipefail
cd "$(dirname "$0")/../.."
bash scripts/deps.sh core tools package

cmake --preset package >/dev/null
cmake --build --preset package -j "$(nproc)"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
cmake --install build/package --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name libfwmclk.so.0)")
export LD_LIBRARY_PATH=$libdir PKG_CONFIG_PATH=$libdir/pkgconfig

echo "== consumer: find_package"
cat > "$scratch/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.20)
project(host LANGUAGES C)
find_package(fwmclk CONFIG REQUIRED COMPONENTS sim)
add_executable(host_example $PWD/examples/host_example.c)
target_link_libraries(host_example PRIVATE fwmclk::fwmclk fwmclk::sim)
CMAKE
cmake -S "$scratch" -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="-Wall -Werror" >/dev/null
grep -q "^fwmclk_DIR:PATH=$prefix/" "$scratch/cmake/CMakeCache.txt"
cmake --build "$scratch/cmake" >/dev/null
"$scratch/cmake/host_example"

echo "== consumer: pkg-config"
# shellcheck disable=SC2046 # the flags are words
cc -std=c11 -Wall -Werror examples/host_example.c -o "$scratch/host_example" $(pkg-config --cflags --libs fwmclk-sim)
"$scratch/host_example"

echo "== consumer: installed tools"
version=$(sed -n 's/^project(fwmclk VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
soname=$(readelf -d "$libdir/libfwmclk.so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = "libfwmclk.so.${version%%.*}" ]
[ "$(pkg-config --modversion fwmclk)" = "$version" ]
for tool in clksim clkpeer; do
  [ "$("$prefix/bin/$tool" --version)" = "$tool $version ($soname)" ]
done
[ "$("$prefix/bin/clkcheck" --version)" = "clkcheck $version" ]
for s in "$prefix/share/fwmclk/scenarios/"*.yaml; do "$prefix/bin/clksim" "$s" >/dev/null; done

echo "== packages (amd64)"
rm -f build/package/*.deb
cpack --preset package >/dev/null
bash scripts/ci/check-debs.sh amd64 build/package/*.deb
