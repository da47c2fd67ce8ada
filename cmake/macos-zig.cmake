# Compiles for macOS on Linux: Zig's clang, C library and linker, a folder of
# headers of portable libraries (the system's own) and of libraries that are
# lists of names (cmake/macos/prefix makes it). What comes out is linked, so
# nothing of ours is missing, but can't be run here.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)

set(macos ${CMAKE_CURRENT_LIST_DIR}/macos)
set(CMAKE_C_COMPILER ${macos}/cc)
set(CMAKE_CXX_COMPILER ${macos}/c++)
set(CMAKE_AR ${macos}/ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${macos}/ranlib CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL /bin/true CACHE FILEPATH "")
set(CMAKE_OSX_SYSROOT "" CACHE STRING "")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# Zig switches its sanitizer on by itself; what is never run needs none. The
# macro is for a Boost that is older than this C++ library.
set(CMAKE_C_FLAGS_INIT -fno-sanitize=all)
set(CMAKE_CXX_FLAGS_INIT
    "-fno-sanitize=all -D_LIBCPP_ENABLE_CXX17_REMOVED_UNARY_BINARY_FUNCTION -F${CMAKE_BINARY_DIR}/prefix/Frameworks")

get_property(trying GLOBAL PROPERTY IN_TRY_COMPILE)
if(trying)
  return()
endif()
set(TARNIFS_MACOS_PREFIX ${CMAKE_BINARY_DIR}/prefix)
file(GLOB_RECURSE macos_files ${macos}/*)
set(stale NOT EXISTS ${TARNIFS_MACOS_PREFIX}/complete)
foreach(file ${macos_files})
  list(APPEND stale OR ${file} IS_NEWER_THAN ${TARNIFS_MACOS_PREFIX}/complete)
endforeach()
if(${stale})
  execute_process(COMMAND ${macos}/prefix ${TARNIFS_MACOS_PREFIX} COMMAND_ERROR_IS_FATAL ANY)
endif()
set(CMAKE_FIND_ROOT_PATH ${TARNIFS_MACOS_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_PREFIX_PATH ${TARNIFS_MACOS_PREFIX})
set(ENV{PKG_CONFIG_LIBDIR} ${TARNIFS_MACOS_PREFIX}/lib/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
