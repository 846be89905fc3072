#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need.
# As root it installs what is missing; otherwise it prints the apt-get line.
# Usage: scripts/deps.sh [core|cross|tools|bench|check|fuzz|all]...
set -euo pipefail

pkgs_core=(cmake ninja-build g++ googletest libgtest-dev libgmock-dev python3 binutils)
pkgs_cross=(g++-arm-linux-gnueabihf qemu-user binutils-arm-linux-gnueabihf)
pkgs_tools=(libyaml-cpp-dev libfmt-dev libcli11-dev nlohmann-json3-dev)
pkgs_bench=(libbenchmark-dev valgrind)
pkgs_check=(tshark clang-format clang-tidy)
pkgs_fuzz=(clang libclang-rt-14-dev)

want=()
for group in "${@:-core}"; do
  case "$group" in
    core) want+=("${pkgs_core[@]}") ;;
    cross) want+=("${pkgs_cross[@]}") ;;
    tools) want+=("${pkgs_tools[@]}") ;;
    bench) want+=("${pkgs_bench[@]}") ;;
    check) want+=("${pkgs_check[@]}") ;;
    fuzz) want+=("${pkgs_fuzz[@]}") ;;
    all) want+=("${pkgs_core[@]}" "${pkgs_cross[@]}" "${pkgs_tools[@]}" "${pkgs_bench[@]}" "${pkgs_check[@]}" "${pkgs_fuzz[@]}") ;;
    *) echo "deps.sh: unknown group '$group'" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  echo "deps.sh: installing ${missing[*]}"
  apt-get update -qq
  # tshark asks whether non-root users may capture; the default (no) is fine.
  echo "wireshark-common wireshark-common/install-setuid boolean false" | debconf-set-selections 2>/dev/null || true
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
else
  echo "deps.sh: missing packages; run as root:" >&2
  echo "  apt-get update && apt-get install -y ${missing[*]}" >&2
  exit 1
fi
