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

# qsbase_ship_runtime(<target>): copies the DLLs beside the built target and installs them with it.
function(qsbase_ship_runtime target)
  qsbase_runtime_dll(stdcxx libstdc++-6.dll)
  qsbase_runtime_dll(gcc libgcc_s_seh-1.dll libgcc_s_dw2-1.dll)
  qsbase_runtime_dll(threads libwinpthread-1.dll)
  add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E copy_if_different ${stdcxx} ${gcc} ${threads} $<TARGET_FILE_DIR:${target}>)
  install(FILES ${stdcxx} ${gcc} ${threads} DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
