# Debian's arm-none-eabi GCC and newlib, for a bare Cortex-M. The toolchain
# file of each part sets FENWA_ARM_CPU_FLAGS and includes this.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(CMAKE_C_COMPILER arm-none-eabi-gcc)
set(CMAKE_CXX_COMPILER arm-none-eabi-g++)
set(CMAKE_ASM_COMPILER arm-none-eabi-gcc)

# There is nothing to run a test program on: probe the compilers with a library.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(CMAKE_C_FLAGS_INIT "${FENWA_ARM_CPU_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${FENWA_ARM_CPU_FLAGS}")
set(CMAKE_ASM_FLAGS_INIT "${FENWA_ARM_CPU_FLAGS}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
