# Builds for 64-bit Windows with MinGW-w64, and runs the tests under Wine where it is installed.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(VORN_MINGW_TARGET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
find_program(VORN_WINE NAMES wine64 PATHS /usr/lib/wine)
if(VORN_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${VORN_WINE})
endif()
