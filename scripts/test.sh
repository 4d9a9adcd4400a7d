#!/usr/bin/env bash
# The test command: installs what is missing, then builds and tests the
# simulated instrument (plain and with ASan/UBSan), builds the chip image with
# its size budget, and boots the emulator image on QEMU. Exits non-zero if
# any step fails; a failing step skips the rest of its own build but not the
# other builds.
set -uo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh </dev/null || exit 1

export TZ=UTC
failed=()

# The FAT module beside the tree (CI has it): the chip image with the card, and
# the card-stack test in the simulator. Without it: the no-card image, and
# that test reports a skip.
fatfs=-DFENWA_FATFS_DIR=
if [[ -f ../shared/third_party/fatfs/ff.c ]]; then
    fatfs=-DFENWA_FATFS_DIR=$(cd ../shared/third_party/fatfs && pwd)
fi

step() { # name, command...
    local name=$1
    shift
    echo
    echo "=== $name"
    if ! "$@"; then
        failed+=("$name")
        return 1
    fi
}

for preset in host asan; do
    step "$preset: configure" cmake --preset "$preset" "$fatfs" &&
        step "$preset: build" cmake --build --preset "$preset" &&
        step "$preset: tests" ctest --preset "$preset" --output-on-failure -j2 --no-tests=error --timeout 600 </dev/null
done

step "arm: configure" cmake --preset arm "$fatfs" &&
    step "arm: build" cmake --build --preset arm

# The same drivers on QEMU's emulated evaluation board, booted and typed at.
step "qemu: configure" cmake --preset qemu -DFENWA_FATFS_DIR= &&
    step "qemu: build" cmake --build --preset qemu &&
    step "qemu: boot test" ctest --preset qemu --output-on-failure --no-tests=error --timeout 600 </dev/null

echo
if ((${#failed[@]} > 0)); then
    printf 'test.sh: FAILED:'
    printf ' [%s]' "${failed[@]}"
    echo
    exit 1
fi
echo "test.sh: all builds and tests passed"
