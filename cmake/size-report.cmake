# Flash and RAM use of the image, printed after every link:
#   cmake -DSIZE_TOOL=arm-none-eabi-size -DELF=fenwa.elf -DFLASH_BYTES=N -DRAM_BYTES=N -P size-report.cmake
# Flash holds text and the initial values of data; RAM holds data, bss and the
# reserves (C library arena, stack) that the linker script sets aside.
execute_process(COMMAND ${SIZE_TOOL} ${ELF} RESULT_VARIABLE rc OUTPUT_VARIABLE berkeley)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${SIZE_TOOL} failed on ${ELF}")
endif()
execute_process(COMMAND ${SIZE_TOOL} -A ${ELF} OUTPUT_VARIABLE sysv)
string(REGEX REPLACE "\n+$" "" berkeley_text "${berkeley}")
message("${berkeley_text}")

# Berkeley format: text data bss dec hex filename
string(REGEX MATCH "\n[ \t]*([0-9]+)[ \t]+([0-9]+)[ \t]+([0-9]+)" row "${berkeley}")
if(NOT row)
  message(FATAL_ERROR "cannot read the size of ${ELF}")
endif()
math(EXPR flash "${CMAKE_MATCH_1} + ${CMAKE_MATCH_2}")
math(EXPR ram "${CMAKE_MATCH_2} + ${CMAKE_MATCH_3}")

set(reserves "")
foreach(section .libc_arena .stack)
  string(REGEX MATCH "\n\\${section}[ \t]+([0-9]+)" hit "${sysv}")
  if(hit)
    string(APPEND reserves " ${section} ${CMAKE_MATCH_1}")
  endif()
endforeach()

message("flash ${flash} of ${FLASH_BYTES} bytes, RAM ${ram} of ${RAM_BYTES} bytes")
if(reserves)
  message("(RAM includes the reserves:${reserves})")
endif()
