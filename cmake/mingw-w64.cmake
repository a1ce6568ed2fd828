# What the two toolchain files for Windows share. VORN_MINGW_TARGET is the prefix of the compiler's programs.
# Debian has two variants of the compiler. The library needs nothing that one of them lacks; the tests need std::thread, which
# only the one with POSIX threads has.
set(CMAKE_SYSTEM_NAME Windows)
find_program(VORN_MINGW_C NAMES ${VORN_MINGW_TARGET}-gcc-posix ${VORN_MINGW_TARGET}-gcc REQUIRED)
find_program(VORN_MINGW_CXX NAMES ${VORN_MINGW_TARGET}-g++-posix ${VORN_MINGW_TARGET}-g++ REQUIRED)
set(CMAKE_C_COMPILER ${VORN_MINGW_C})
set(CMAKE_CXX_COMPILER ${VORN_MINGW_CXX})
set(CMAKE_RC_COMPILER ${VORN_MINGW_TARGET}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${VORN_MINGW_TARGET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# No runtime DLL of the compiler beside ours.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
