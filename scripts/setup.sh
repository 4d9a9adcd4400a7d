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
)

missing=()
for pkg in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    if [[ "$status" != "install ok installed" ]]; then
        missing+=("$pkg")
    fi
done
((${#missing[@]} == 0)) && exit 0

if ! command -v apt-get >/dev/null; then
    echo "setup: missing ${missing[*]} and no apt-get to install them" >&2
    exit 1
fi

as_root=()
if [[ $(id -u) -ne 0 ]]; then
    if ! command -v sudo >/dev/null; then
        echo "setup: missing ${missing[*]}; run as root or install sudo" >&2
        exit 1
    fi
    as_root=(sudo -n)
fi

echo "setup: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq </dev/null >/dev/null
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null >/dev/null
