# Compiler options of this project's own targets. Nothing here reaches a consumer.

if(QSBASE_SANITIZE)
  add_compile_options(-fsanitize=${QSBASE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QSBASE_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    add_compile_options(-Wno-maybe-uninitialized)  # GCC sees such in std::regex, but only when it instruments
  endif()
endif()
if(QSBASE_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
if(QSBASE_COVERAGE)
  add_link_options(--coverage)
endif()

# The x87 unit of 32-bit x86 rounds otherwise than every other target: dates would give another text there.
if(WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_options(-msse2 -mfpmath=sse)
endif()

set(QSBASE_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef)

# What makes an error harder to use for an attack; tests/checks/hardening.sh reads the binaries for it. How a program or
# library is laid out in memory:
set(QSBASE_LAYOUT)
if(WIN32)
  set(QSBASE_LAYOUT -Wl,--dynamicbase -Wl,--nxcompat)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    list(APPEND QSBASE_LAYOUT -Wl,--high-entropy-va)
  endif()
elseif(NOT QSBASE_SANITIZE)
  set(QSBASE_LAYOUT -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
endif()
# What is checked at run time. Sanitizers look at the same things more closely, and take its place.
set(QSBASE_CHECKED_CODE)
set(QSBASE_CHECKED_CODE_LIBRARY)
if(NOT QSBASE_SANITIZE)
  set(QSBASE_CHECKED_CODE -fstack-protector-strong)
  if(WIN32)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libssp.a
                    OUTPUT_VARIABLE QSBASE_CHECKED_CODE_LIBRARY OUTPUT_STRIP_TRAILING_WHITESPACE)
  else()
    list(APPEND QSBASE_CHECKED_CODE -fstack-clash-protection)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|i.86")
      list(APPEND QSBASE_CHECKED_CODE -fcf-protection)
    endif()
  endif()
  if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
    # The C library checks nothing, and says so, without an optimiser.
    list(APPEND QSBASE_CHECKED_CODE $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  endif()
endif()

# qsbase_checked_code(<target>...): for the shared library and the programs that users run. Not for objects of a static
# library on Windows: its users' programs would have to link the compiler's library that does it.
function(qsbase_checked_code)
  foreach(target ${ARGN})
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} BEFORE PRIVATE ${QSBASE_CHECKED_CODE})
    target_link_libraries(${target} PRIVATE ${QSBASE_CHECKED_CODE_LIBRARY})
  endforeach()
endfunction()

# qsbase_counted(<target>): the library's lines are counted when QSBASE_COVERAGE is on; tests are compiled as ever.
function(qsbase_counted target)
  if(QSBASE_COVERAGE)
    target_compile_options(${target} PRIVATE -O0 -U_FORTIFY_SOURCE -g1 --coverage -fprofile-update=atomic)
  endif()
endfunction()

# qsbase_target_options(<target>): its layout, and the warnings, as errors where CI asks for it.
function(qsbase_target_options target)
  target_link_options(${target} PRIVATE ${QSBASE_LAYOUT})
  target_compile_options(${target} PRIVATE ${QSBASE_WARNINGS})
  if(QSBASE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
