# Cross toolchain for the TM4C123GH6PM (Cortex-M4F, hard-float ABI).
set(FENWA_ARM_CPU_FLAGS "-mcpu=cortex-m4 -mthumb -mfloat-abi=hard -mfpu=fpv4-sp-d16")
include(${CMAKE_CURRENT_LIST_DIR}/arm-none-eabi-common.cmake)
