#!/usr/bin/env bash
# Installs what the build needs, when it is missing (Debian and derivatives).
# Quiet and non-interactive; runs apt-get update only when something is missing.
set -euo pipefail

packages=(
    cmake ninja-build g++
    libgtest-dev libgmock-dev libbenchmark-dev
    gcc-arm-none-eabi libnewlib-arm-none-eabi libstdc++-arm-none-eabi-newlib
    clang-format
    lrzsz
    python3
    dosfstools mtools
)
# Wanted but not needed: without QEMU the emulated boot test reports a skip;
# without these the tests of the Python tools (tools/) that need them do;
# clang and its runtime are for scripts/fuzz.sh (libFuzzer).
optional=(qemu-system-arm python3-pandas python3-matplotlib python3-serial clang-14 libclang-rt-14-dev)

missing=()
for pkg in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    if [[ "$status" != "install ok installed" ]]; then
        missing+=("$pkg")
    fi
done
want=()
for pkg in "${optional[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    if [[ "$status" != "install ok installed" ]]; then
        want+=("$pkg")
    fi
done
((${#missing[@]} + ${#want[@]} == 0)) && exit 0

if ! command -v apt-get >/dev/null; then
    ((${#missing[@]} == 0)) && exit 0
    echo "setup: missing ${missing[*]} and no apt-get to install them" >&2
    exit 1
fi

as_root=()
if [[ $(id -u) -ne 0 ]]; then
    if ! command -v sudo >/dev/null; then
        ((${#missing[@]} == 0)) && exit 0
        echo "setup: missing ${missing[*]}; run as root or install sudo" >&2
        exit 1
    fi
    as_root=(sudo -n)
fi

echo "setup: installing ${missing[*]} ${want[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
if ! "${as_root[@]}" apt-get update -qq </dev/null >/dev/null && ((${#missing[@]} == 0)); then
    echo "setup: could not reach the package lists; the tests that need ${want[*]} will be skipped" >&2
    exit 0
fi
if ((${#missing[@]} > 0)); then
    "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null >/dev/null
fi
if ((${#want[@]} > 0)); then
    "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${want[@]}" </dev/null >/dev/null ||
        echo "setup: could not install ${want[*]}; the tests that need it will be skipped" >&2
fi
