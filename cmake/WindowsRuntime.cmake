# The MinGW runtime DLLs. Exceptions and std::string cross the border of libQSbase.dll, so it and its host share them.

# qsbase_runtime_dll(<variable> <name>...): the full path of the first of the DLLs that the compiler has.
function(qsbase_runtime_dll variable)
  foreach(name ${ARGN})
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name} OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(IS_ABSOLUTE "${path}")
      cmake_path(NORMAL_PATH path)
      set(${variable} ${path} PARENT_SCOPE)
      return()
    endif()
  endforeach()
  message(FATAL_ERROR "The compiler has none of the runtime DLLs ${ARGN}")
endfunction()

# qsbase_ship_runtime(<target>): installs the DLLs with the target. The target qsbase_runtime copies them beside the
# programs; a program of the static library needs them too, and does not wait for the shared one.
function(qsbase_ship_runtime target)
  qsbase_runtime_dll(stdcxx libstdc++-6.dll)
  qsbase_runtime_dll(gcc libgcc_s_seh-1.dll libgcc_s_dw2-1.dll)
  qsbase_runtime_dll(threads libwinpthread-1.dll)
  set(copies)
  foreach(dll ${stdcxx} ${gcc} ${threads})
    cmake_path(GET dll FILENAME name)
    set(copy ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name})
    add_custom_command(OUTPUT ${copy} COMMAND ${CMAKE_COMMAND} -E copy ${dll} ${copy} DEPENDS ${dll} VERBATIM)
    list(APPEND copies ${copy})
  endforeach()
  add_custom_target(qsbase_runtime DEPENDS ${copies})
  add_dependencies(${target} qsbase_runtime)
  install(FILES ${stdcxx} ${gcc} ${threads} DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
