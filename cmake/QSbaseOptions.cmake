# Compiler options of this project's own targets. Nothing here reaches a consumer.

if(QSBASE_SANITIZE)
  add_compile_options(-fsanitize=${QSBASE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QSBASE_SANITIZE})
endif()
if(QSBASE_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()

set(QSBASE_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef)

# qsbase_target_options(<target>): the warnings, as errors where CI asks for it.
function(qsbase_target_options target)
  target_compile_options(${target} PRIVATE ${QSBASE_WARNINGS})
  if(QSBASE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
