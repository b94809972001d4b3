# OSTREL_RUNTIME_DLLS: the compiler's runtime DLLs that a MinGW-built program and libostrel.dll
# load (C++ and GCC runtimes, winpthread), as full paths; empty for any other target. Both the
# build tree (copied beside each program) and the Windows package (bin/) take them from here.
if(DEFINED OSTREL_RUNTIME_DLLS)
  return()
endif()
set(OSTREL_RUNTIME_DLLS "")
if(WIN32 AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
                    OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    # The compiler answers with the bare name when it has no such file.
    if(IS_ABSOLUTE "${path}" AND EXISTS "${path}")
      get_filename_component(path "${path}" REALPATH)
      list(APPEND OSTREL_RUNTIME_DLLS ${path})
    endif()
  endforeach()
endif()
