# The chip images: the firmware and the register-level back end linked into
# fenwa.elf (plus .bin and .map), with a flash and RAM report after every link.
# Included by the top-level CMakeLists when FENWA_BOARD is a chip:
#   tm4c123   the instrument's TM4C123GH6PM
#   lm3s6965  the evaluation board QEMU emulates (FENWA_CHIP_EMULATOR): the
#             same drivers, with RAM standing in for the EEPROM, FRAM and clock
find_program(FENWA_ARM_NM arm-none-eabi-nm REQUIRED)
find_program(FENWA_ARM_OBJCOPY arm-none-eabi-objcopy REQUIRED)

set(FENWA_CHIP_DIR ${CMAKE_SOURCE_DIR}/platform/tm4c123)
file(GLOB FENWA_TM4C123_SOURCES CONFIGURE_DEPENDS ${FENWA_CHIP_DIR}/*.cpp)
# emu_*.cpp stand in for the parts the emulator lacks; each replaces the file
# of the same name without the prefix.
file(GLOB FENWA_EMU_SOURCES CONFIGURE_DEPENDS ${FENWA_CHIP_DIR}/emu_*.cpp)
list(REMOVE_ITEM FENWA_TM4C123_SOURCES ${FENWA_EMU_SOURCES})
if(FENWA_BOARD STREQUAL "lm3s6965")
  set(FENWA_CHIP_EMULATOR 1)
  set(FENWA_LINKER_SCRIPT ${FENWA_CHIP_DIR}/lm3s6965.ld)
  set(FENWA_RAM_BYTES 32768) # the instrument's share; the rest stands in for EEPROM/FRAM
  foreach(emu ${FENWA_EMU_SOURCES})
    get_filename_component(name ${emu} NAME)
    string(REGEX REPLACE "^emu_" "" replaced ${name})
    list(REMOVE_ITEM FENWA_TM4C123_SOURCES ${FENWA_CHIP_DIR}/${replaced})
  endforeach()
  list(APPEND FENWA_TM4C123_SOURCES ${FENWA_EMU_SOURCES})
else()
  set(FENWA_CHIP_EMULATOR 0)
  set(FENWA_LINKER_SCRIPT ${FENWA_CHIP_DIR}/tm4c123gh6pm.ld)
  set(FENWA_RAM_BYTES 32768)
endif()

add_executable(fenwa ${FENWA_FIRMWARE_SOURCES} ${FENWA_TM4C123_SOURCES})
set_target_properties(fenwa PROPERTIES SUFFIX ".elf" LINK_DEPENDS ${FENWA_LINKER_SCRIPT})
target_include_directories(fenwa PRIVATE ${CMAKE_SOURCE_DIR}/firmware
                                         ${CMAKE_SOURCE_DIR}/platform/include)
# The host's C library shows its POSIX and GNU extras to g++ (strnlen,
# strcasecmp ...); make newlib show the same, so both boards compile alike.
target_compile_definitions(fenwa PRIVATE _GNU_SOURCE FENWA_CHIP_EMULATOR=${FENWA_CHIP_EMULATOR})
# One foreground loop and interrupts that never construct statics: no guards.
target_compile_options(fenwa PRIVATE ${FENWA_WARNINGS} ${FENWA_FIRMWARE_FLAGS}
                                     -ffunction-sections -fdata-sections -fno-threadsafe-statics)
# Frame sizes and direct-call graph of every object (.su, .ci next to the .obj)
# for the stack figure of the size report.
target_compile_options(fenwa PRIVATE -fstack-usage -fcallgraph-info=su)
target_link_options(fenwa PRIVATE
    -T${FENWA_LINKER_SCRIPT}
    -L${FENWA_CHIP_DIR}
    -nostartfiles
    -specs=nano.specs
    -u _printf_float
    -Wl,--undefined=_scanf_float
    -Wl,--gc-sections
    -Wl,--fatal-warnings
    -Wl,-Map=${CMAKE_CURRENT_BINARY_DIR}/fenwa.map)

# Flash, static RAM and worst-case stack after every link. The instrument's
# image fails the build when over budget; the emulator's only reports (its
# core has no FPU: the exception frame is 8 words and the alignment word).
find_package(Python3 REQUIRED COMPONENTS Interpreter)
string(REGEX REPLACE "nm$" "" FENWA_ARM_TOOL_PREFIX ${FENWA_ARM_NM})
if(FENWA_CHIP_EMULATOR)
  set(FENWA_SIZE_BUDGET --exception-frame 36)
else()
  set(FENWA_SIZE_BUDGET --budget)
endif()
add_custom_command(TARGET fenwa POST_BUILD
    COMMAND ${FENWA_ARM_OBJCOPY} -O binary $<TARGET_FILE:fenwa> ${CMAKE_CURRENT_BINARY_DIR}/fenwa.bin
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/scripts/size_budget.py --elf $<TARGET_FILE:fenwa>
            --objdir ${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles --tool-prefix ${FENWA_ARM_TOOL_PREFIX}
            --flash-bytes 262144 --ram-bytes ${FENWA_RAM_BYTES} ${FENWA_SIZE_BUDGET}
    BYPRODUCTS ${CMAKE_CURRENT_BINARY_DIR}/fenwa.bin ${CMAKE_CURRENT_BINARY_DIR}/fenwa.map
    VERBATIM)

# ---- the microSD card: the FAT module and its disk layer --------------------
# With FatFs (cmake/fatfs.cmake) the image has the card; without it the card
# layer answers FR_NOT_READY. The module's folder comes first on the include
# path: the firmware sees its ff.h, the disk layer keeps our diskio.h.
include(${CMAKE_SOURCE_DIR}/cmake/fatfs.cmake)
set(FENWA_CARD_SOURCES ${FENWA_CHIP_DIR}/sd_spi.cpp ${FENWA_CHIP_DIR}/fattime.cpp)
get_target_property(FENWA_IMAGE_SOURCES fenwa SOURCES)
if(FENWA_FATFS_DIR)
  fenwa_add_fatfs(fenwa_fatfs OBJECT)
  # its frames count in the stack figure like ours
  target_compile_options(fenwa_fatfs PRIVATE -fstack-usage -fcallgraph-info=su)
  target_include_directories(fenwa BEFORE PRIVATE ${FENWA_FATFS_DIR})
  target_include_directories(fenwa PRIVATE ${FENWA_CHIP_DIR})
  target_compile_options(fenwa PRIVATE ${FENWA_FFCONF_FLAG})
  list(APPEND FENWA_IMAGE_SOURCES $<TARGET_OBJECTS:fenwa_fatfs>)
  list(REMOVE_ITEM FENWA_IMAGE_SOURCES ${FENWA_CHIP_DIR}/ff_nocard.cpp)
else()
  list(REMOVE_ITEM FENWA_IMAGE_SOURCES ${FENWA_CARD_SOURCES})
endif()
set_property(TARGET fenwa PROPERTY SOURCES ${FENWA_IMAGE_SOURCES})

if(FENWA_CHIP_EMULATOR)
  enable_testing()
  add_subdirectory(${CMAKE_SOURCE_DIR}/tests/qemu ${CMAKE_CURRENT_BINARY_DIR}/tests/qemu)
endif()
