#!/usr/bin/env bash
# Runs one fuzz target under libFuzzer with ASan and UBSan for a while:
#   scripts/fuzz.sh TARGET SECONDS [libFuzzer options...]
# TARGET: console float ymodem cal replies script state. Builds build/fuzz with clang
# first. New inputs go to build/fuzz/corpus/TARGET, seeded by the checked-in
# corpus tests/fuzz/corpus/TARGET (keep what adds coverage with the target's -merge=1
# into a new folder, then replace the checked-in one with it). A
# crash leaves its input in build/fuzz/ as crash-* and exits non-zero.
set -euo pipefail
cd "$(dirname "$0")/.."
if (($# < 2)); then
    echo "usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer options]" >&2
    exit 2
fi
target=$1 seconds=$2
shift 2
scripts/setup.sh
cc=${FENWA_FUZZ_CC:-clang-14} cxx=${FENWA_FUZZ_CXX:-clang++-14}
if ! command -v "$cxx" >/dev/null; then
    echo "fuzz.sh: $cxx is missing (Debian: clang-14 libclang-rt-14-dev; scripts/setup.sh installs them when it can)" >&2
    exit 1
fi
if [[ ! -f build/fuzz/build.ninja ]]; then
    CC=$cc CXX=$cxx cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DFENWA_SANITIZE=ON -DFENWA_FUZZ=ON >/dev/null
fi
cmake --build build/fuzz -j2 --target "fuzz_$target"
mkdir -p "build/fuzz/corpus/$target"
cd build/fuzz
export TZ=UTC ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0} UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
exec "./tests/fuzz/fuzz_$target" -max_total_time="$seconds" -print_final_stats=1 \
    -timeout=60 "$@" "corpus/$target" "../../tests/fuzz/corpus/$target"
