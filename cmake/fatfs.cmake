# The FAT module of the microSD card: FatFs R0.16, the user's download
# (elm-chan.org, release R0.16), never part of this tree. FENWA_FATFS_DIR
# points at the folder holding its ff.c, ff.h and diskio.h; the module is
# built with our configuration (platform/tm4c123/ffconf.h, included ahead of
# every unit that sees ff.h), never the folder's own ffconf.h.
set(FENWA_FATFS_DIR "" CACHE PATH "FatFs R0.16 source folder (empty: no FAT module)")
set(FENWA_FFCONF ${CMAKE_SOURCE_DIR}/platform/tm4c123/ffconf.h)
set(FENWA_FFCONF_FLAG -include${FENWA_FFCONF})

if(FENWA_FATFS_DIR)
  get_filename_component(FENWA_FATFS_DIR ${FENWA_FATFS_DIR} ABSOLUTE)
  foreach(needed ff.c ff.h diskio.h)
    if(NOT EXISTS ${FENWA_FATFS_DIR}/${needed})
      message(FATAL_ERROR "FENWA_FATFS_DIR: no ${needed} in ${FENWA_FATFS_DIR}")
    endif()
  endforeach()
  file(STRINGS ${FENWA_FATFS_DIR}/ff.h FENWA_FATFS_REVISION REGEX "^#define[ \t]+FF_DEFINED")
  if(NOT FENWA_FATFS_REVISION MATCHES "80386")
    message(FATAL_ERROR "FENWA_FATFS_DIR: ${FENWA_FATFS_DIR} is not FatFs R0.16 "
                        "(ff.h: ${FENWA_FATFS_REVISION})")
  endif()
endif()

# fenwa_add_fatfs(target type): the module as a library of that type (OBJECT
# for the chip image, whose size report reads each object), with our configuration.
function(fenwa_add_fatfs target type)
  set(sources ${FENWA_FATFS_DIR}/ff.c)
  if(EXISTS ${FENWA_FATFS_DIR}/ffsystem.c)
    list(APPEND sources ${FENWA_FATFS_DIR}/ffsystem.c)
  endif()
  add_library(${target} ${type} ${sources})
  # Someone else's C: built with its own flags, not held to our warnings.
  target_include_directories(${target} PRIVATE ${FENWA_FATFS_DIR})
  target_compile_options(${target} PRIVATE ${FENWA_FFCONF_FLAG} -ffunction-sections -fdata-sections)
endfunction()
