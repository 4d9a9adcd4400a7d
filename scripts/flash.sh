#!/usr/bin/env bash
# Writes the chip image into the instrument's TM4C123GH6PM through the
# LaunchPad's debug interface (ICDI, USB): lm4flash by default, OpenOCD as
# the alternative. Both verify what they wrote; the board then runs it.
#   scripts/flash.sh [--openocd] [IMAGE]
# IMAGE: build/arm/fenwa.bin (lm4flash) or build/arm/fenwa.elf (OpenOCD).
# Debian: apt-get install lm4flash openocd
set -euo pipefail
cd "$(dirname "$0")/.."

tool=lm4flash
if [[ ${1:-} == --openocd ]]; then
    tool=openocd
    shift
fi
if [[ ${1:-} == -h || ${1:-} == --help || $# -gt 1 ]]; then
    sed -n '2,7p' "$0" | sed 's/^# \{0,1\}//'
    exit $(($# > 1 ? 2 : 0))
fi

default=build/arm/fenwa.bin
[[ $tool == openocd ]] && default=build/arm/fenwa.elf
image=${1:-$default}
if [[ ! -f $image ]]; then
    echo "flash: no $image; build it first:" >&2
    echo "  cmake --preset arm -DFENWA_FATFS_DIR=/path/to/fatfs/source && cmake --build --preset arm" >&2
    exit 1
fi
if ! command -v "$tool" >/dev/null; then
    echo "flash: $tool is not installed (Debian: apt-get install $tool)" >&2
    exit 1
fi

# An image without the FAT module refuses every deployment: say so before
# it goes on a board (its card layer is the C++ stand-in, not the module's C).
elf=${image%.bin}.elf
if [[ -f $elf ]] && command -v arm-none-eabi-nm >/dev/null &&
    ! arm-none-eabi-nm "$elf" | grep -q ' T f_mount$'; then
    echo "flash: warning: $elf has no FAT module; every deployment will report" >&2
    echo "       a file system error (README: \"The card\")" >&2
fi

if [[ $tool == lm4flash ]]; then
    # a raw image at address 0, read back and compared
    exec lm4flash -v "$image"
fi
exec openocd -f board/ek-tm4c123gxl.cfg -c "program $image verify reset exit"
