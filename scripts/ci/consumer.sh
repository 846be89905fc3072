#!/usr/bin/env bash
# The library as an integrator gets it: the release build installed into a
# temporary prefix; examples/host_example.c built against that copy once with
# find_package and once with pkg-config, and run on the installed simulated
# board; the installed tools report the one version; then the amd64 Debian
# packages, their contents and lintian (scripts/ci/check-debs.sh). Against the
# installed copy and against the packages' files, examples/library_host.c,
# which calls the library's API alone, is built with find_package and with
# pkg-config (as a position-independent executable and not) under the
# compiler's default --as-needed, and run.
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

# library_host <label> <root>: the library-only host against the copy under
# <root>, with CMake (the board named first: the order must not matter) and
# with the pkg-config line of the README.
library_host() {
  local out=$scratch/$1 root=$2 libdir pie
  libdir=$(dirname "$(find "$root" -name libfwmclk.so.0)")
  mkdir -p "$out"
  cat > "$out/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.20)
project(library_host LANGUAGES C)
find_package(fwmclk CONFIG REQUIRED COMPONENTS sim)
add_executable(library_host $PWD/examples/library_host.c)
target_link_libraries(library_host PRIVATE fwmclk::sim fwmclk::fwmclk)
CMAKE
  cmake -S "$out" -B "$out/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$root" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_C_FLAGS="-Wall -Werror" >/dev/null
  grep -q "^fwmclk_DIR:PATH=$libdir/cmake/fwmclk" "$out/cmake/CMakeCache.txt"
  cmake --build "$out/cmake" >/dev/null
  LD_LIBRARY_PATH=$libdir "$out/cmake/library_host"
  for pie in "-fPIE -pie" "-fno-pie -no-pie"; do
    # shellcheck disable=SC2046,SC2086 # the flags are words
    cc -std=c11 -Wall -Werror $pie examples/library_host.c -o "$out/library_host" \
      $(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --cflags --libs fwmclk fwmclk-sim)
    LD_LIBRARY_PATH=$libdir "$out/library_host"
  done
}

echo "== consumer: library-only host, installed copy"
library_host installed "$prefix"

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

echo "== consumer: library-only host, packages"
for deb in build/package/*.deb; do dpkg-deb -x "$deb" "$scratch/debs"; done
library_host packages "$scratch/debs/usr"
