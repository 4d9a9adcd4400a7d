# Cross toolchain for the LM3S6965 that QEMU emulates (Cortex-M3, no FPU).
set(FENWA_ARM_CPU_FLAGS "-mcpu=cortex-m3 -mthumb -mfloat-abi=soft")
include(${CMAKE_CURRENT_LIST_DIR}/arm-none-eabi-common.cmake)
