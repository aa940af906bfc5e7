# Toolchain file: 32-bit Windows by MinGW-w64 (see mingw.cmake).
set(QSBASE_WINDOWS_ARCH i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
