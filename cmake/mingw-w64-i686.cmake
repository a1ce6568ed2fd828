# Builds for 32-bit Windows with MinGW-w64. Debian's Wine runs such programs only where its 32-bit half is installed too.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(VORN_MINGW_TARGET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
# All of it, so that every function aligns its stack for these instructions itself: callers align it to 4 only.
set(CMAKE_C_FLAGS_INIT "-msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-msse2 -mfpmath=sse")
find_program(VORN_WINE NAMES wine PATHS /usr/lib/wine NO_DEFAULT_PATH)
if(VORN_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${VORN_WINE})
endif()
