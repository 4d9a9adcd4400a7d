# The real board: the firmware and the TM4C123GH6PM back end linked into
# fenwa.elf (plus fenwa.bin and fenwa.map), with a flash and RAM report after
# every link. Included by the top-level CMakeLists when FENWA_BOARD=tm4c123.
find_program(FENWA_ARM_SIZE arm-none-eabi-size REQUIRED)
find_program(FENWA_ARM_OBJCOPY arm-none-eabi-objcopy REQUIRED)

file(GLOB FENWA_TM4C123_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/platform/tm4c123/*.cpp)
set(FENWA_LINKER_SCRIPT ${CMAKE_SOURCE_DIR}/platform/tm4c123/tm4c123gh6pm.ld)

add_executable(fenwa ${FENWA_FIRMWARE_SOURCES} ${FENWA_TM4C123_SOURCES})
set_target_properties(fenwa PROPERTIES SUFFIX ".elf" LINK_DEPENDS ${FENWA_LINKER_SCRIPT})
target_include_directories(fenwa PRIVATE ${CMAKE_SOURCE_DIR}/firmware
                                         ${CMAKE_SOURCE_DIR}/platform/include)
# The host's C library shows its POSIX and GNU extras to g++ (strnlen,
# strcasecmp ...); make newlib show the same, so both boards compile alike.
target_compile_definitions(fenwa PRIVATE _GNU_SOURCE)
# One foreground loop and interrupts that never construct statics: no guards.
target_compile_options(fenwa PRIVATE ${FENWA_WARNINGS} ${FENWA_FIRMWARE_FLAGS}
                                     -ffunction-sections -fdata-sections -fno-threadsafe-statics)
target_link_options(fenwa PRIVATE
    -T${FENWA_LINKER_SCRIPT}
    -nostartfiles
    -specs=nano.specs
    -u _printf_float
    -Wl,--gc-sections
    -Wl,--fatal-warnings
    -Wl,-Map=${CMAKE_CURRENT_BINARY_DIR}/fenwa.map)

add_custom_command(TARGET fenwa POST_BUILD
    COMMAND ${FENWA_ARM_OBJCOPY} -O binary $<TARGET_FILE:fenwa> ${CMAKE_CURRENT_BINARY_DIR}/fenwa.bin
    COMMAND ${CMAKE_COMMAND} -DSIZE_TOOL=${FENWA_ARM_SIZE} -DELF=$<TARGET_FILE:fenwa>
            -DFLASH_BYTES=262144 -DRAM_BYTES=32768 -P ${CMAKE_SOURCE_DIR}/cmake/size-report.cmake
    BYPRODUCTS ${CMAKE_CURRENT_BINARY_DIR}/fenwa.bin ${CMAKE_CURRENT_BINARY_DIR}/fenwa.map
    VERBATIM)
