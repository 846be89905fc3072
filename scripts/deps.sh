#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need.
# As root it installs what is missing; otherwise it prints the apt-get line.
# Usage: scripts/deps.sh [core|cross|tools|cross-tools|bench|check|package|interop|fuzz|all]...
# cross-tools: the tools' libraries for armhf, through Debian multiarch (adds
# the armhf architecture to dpkg first).
set -euo pipefail

pkgs_core=(cmake ninja-build g++ googletest libgtest-dev libgmock-dev python3 python3-jsonschema binutils)
pkgs_cross=(g++-arm-linux-gnueabihf qemu-user binutils-arm-linux-gnueabihf)
pkgs_tools=(libyaml-cpp-dev libfmt-dev libcli11-dev nlohmann-json3-dev libpcap-dev)
pkgs_bench=(libbenchmark-dev valgrind)
# The header-only CLI11 and nlohmann-json serve every architecture as they are.
# Debian's libyaml-cpp-dev cannot be installed for two architectures at once:
# the cross build takes its (architecture-free) headers from the host's package
# and links the armhf runtime library. libpcap likewise: its -dev package for
# armhf drags in the whole armhf C library development chain, which must match
# the host's version for version; the runtime library and the host's headers
# are all the cross build needs.
pkgs_cross_tools=(libyaml-cpp-dev libyaml-cpp0.7:armhf libfmt-dev:armhf libstdc++6:armhf libcli11-dev nlohmann-json3-dev
                  libpcap-dev libpcap0.8:armhf)
# chromium opens the TE report headless, as a person's browser would (test label browser).
pkgs_check=(tshark jq clang-format clang-tidy chromium)
pkgs_package=(dpkg-dev lintian pkgconf file help2man jq)
pkgs_interop=(linuxptp iproute2 util-linux tshark)
pkgs_fuzz=(clang libclang-rt-14-dev)

want=()
for group in "${@:-core}"; do
  case "$group" in
    core) want+=("${pkgs_core[@]}") ;;
    cross) want+=("${pkgs_cross[@]}") ;;
    tools) want+=("${pkgs_tools[@]}") ;;
    cross-tools) want+=("${pkgs_cross_tools[@]}") ;;
    bench) want+=("${pkgs_bench[@]}") ;;
    check) want+=("${pkgs_check[@]}") ;;
    package) want+=("${pkgs_package[@]}") ;;
    interop) want+=("${pkgs_interop[@]}") ;;
    fuzz) want+=("${pkgs_fuzz[@]}") ;;
    all) want+=("${pkgs_core[@]}" "${pkgs_cross[@]}" "${pkgs_tools[@]}" "${pkgs_cross_tools[@]}" "${pkgs_bench[@]}" \
                "${pkgs_check[@]}" "${pkgs_package[@]}" "${pkgs_interop[@]}" "${pkgs_fuzz[@]}") ;;
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
  if printf '%s\n' "${missing[@]}" | grep -q ':armhf$' && ! dpkg --print-foreign-architectures | grep -qx armhf; then
    dpkg --add-architecture armhf
  fi
  # A mirror caught mid-sync fails one list now and then; what is missing for
  # real makes the install below fail.
  apt-get update -qq || echo "deps.sh: some package lists could not be updated; going on" >&2
  # tshark asks whether non-root users may capture; the default (no) is fine.
  echo "wireshark-common wireshark-common/install-setuid boolean false" | debconf-set-selections 2>/dev/null || true
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
else
  echo "deps.sh: missing packages; run as root:" >&2
  printf '%s\n' "${missing[@]}" | grep -q ':armhf$' && echo "  dpkg --add-architecture armhf" >&2
  echo "  apt-get update && apt-get install -y ${missing[*]}" >&2
  exit 1
fi
