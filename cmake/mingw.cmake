# What the toolchain files windows-x86_64.cmake and windows-i686.cmake share: MinGW-w64 with POSIX threads, and the
# libraries that scripts/windows-deps built. They set QSBASE_WINDOWS_ARCH before they include this one.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${QSBASE_WINDOWS_ARCH})

# Another folder than the one that scripts/windows-deps links: -DQSBASE_WINDOWS_DEPS=...
if(NOT DEFINED QSBASE_WINDOWS_DEPS)
  set(QSBASE_WINDOWS_DEPS ${CMAKE_CURRENT_LIST_DIR}/../build/deps/${QSBASE_WINDOWS_ARCH})
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QSBASE_WINDOWS_DEPS)

set(target ${QSBASE_WINDOWS_ARCH}-w64-mingw32)
set(CMAKE_C_COMPILER ${target}-gcc-posix)
set(CMAKE_CXX_COMPILER ${target}-g++-posix)
set(CMAKE_RC_COMPILER ${target}-windres)
find_program(CMAKE_AR ${target}-gcc-ar-posix)
find_program(CMAKE_RANLIB ${target}-gcc-ranlib-posix)
# Windows 10 and later.
set(CMAKE_C_FLAGS_INIT "-D_WIN32_WINNT=0x0A00 -DWINVER=0x0A00")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")

# The built libraries come before those of the compiler's own folder, so that zlib is the static one.
set(CMAKE_FIND_ROOT_PATH ${QSBASE_WINDOWS_DEPS} /usr/${target})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${QSBASE_WINDOWS_DEPS}/lib/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine ${QSBASE_WINDOWS_ARCH})
