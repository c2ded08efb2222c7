# Warnings and sanitizers for the project's own targets: call devlaser_project_target(<target>) on each.

set(DEVLASER_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
    -Wnull-dereference -Wimplicit-fallthrough)
# GCC 12 in optimised builds reports false overlaps, uninitialised reads and null dereferences inside
# std::string's inlined code (-Wrestrict, -Wmaybe-uninitialized, and -Wnull-dereference in CLI11's string
# splitting, which every program with a command line includes); they say nothing about our code. Debug builds
# keep all three.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13
   AND CMAKE_BUILD_TYPE MATCHES "Release|RelWithDebInfo|MinSizeRel")
  list(APPEND DEVLASER_WARNINGS -Wno-restrict -Wno-maybe-uninitialized -Wno-null-dereference)
endif()

if(DEVLASER_SANITIZE STREQUAL "address")
  set(DEVLASER_SAN_FLAGS -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
elseif(DEVLASER_SANITIZE STREQUAL "thread")
  set(DEVLASER_SAN_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
elseif(DEVLASER_SANITIZE STREQUAL "")
  set(DEVLASER_SAN_FLAGS "")
else()
  message(FATAL_ERROR "DEVLASER_SANITIZE must be address, thread or empty, not '${DEVLASER_SANITIZE}'")
endif()

# The fuzz build instruments all code for libFuzzer's coverage feedback; only the fuzz targets link its main.
if(DEVLASER_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "DEVLASER_FUZZ needs clang: configure with CC=clang CXX=clang++ (or the fuzz preset)")
  endif()
  list(APPEND DEVLASER_SAN_FLAGS -fsanitize=fuzzer-no-link)
endif()

# Sanitizers apply to everything linked into one process, so they are global (and a program linking the plug-in
# of a sanitized build needs them too).
string(REPLACE ";" " " DEVLASER_SAN_FLAGS_TEXT "${DEVLASER_SAN_FLAGS}")
add_compile_options(${DEVLASER_SAN_FLAGS})
add_link_options(${DEVLASER_SAN_FLAGS})

function(devlaser_project_target target)
  target_compile_options(${target} PRIVATE ${DEVLASER_WARNINGS})
  if(DEVLASER_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
