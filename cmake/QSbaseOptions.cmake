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
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

# The x87 unit of 32-bit x86 rounds otherwise than every other target: dates would give another text there.
if(WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_options(-msse2 -mfpmath=sse)
endif()

set(QSBASE_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef)

# qsbase_target_options(<target>): the warnings, as errors where CI asks for it.
function(qsbase_target_options target)
  target_compile_options(${target} PRIVATE ${QSBASE_WARNINGS})
  if(QSBASE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
