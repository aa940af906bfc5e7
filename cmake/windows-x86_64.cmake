# Toolchain file: 64-bit Windows by MinGW-w64 (see mingw.cmake).
set(QSBASE_WINDOWS_ARCH x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
