# GoogleTest and GoogleMock for the tests, and what cross-built test programs need to run.
# Included by tests/CMakeLists.txt; knows no particular target. A native build simply finds
# the system's GoogleTest. For a cross build (CMAKE_CROSSCOMPILING):
#
# - GTest::gtest, GTest::gtest_main and GTest::gmock: the target's own GoogleTest when the
#   toolchain's root has one (a target package), otherwise built here from the sources in
#   OSTREL_GTEST_SOURCE_DIR (Debian's googletest package puts them in /usr/src/googletest).
#   The toolchain files confine package search to the target's root, so host-built GoogleTest
#   libraries are never picked up by mistake.
# - Test discovery: the test programs are listed at test time (PRE_TEST), through the
#   target's CROSSCOMPILING_EMULATOR, so building needs no emulator. A Windows build with no
#   emulator named by its toolchain gets Wine, started headless with its prefix in the build
#   directory (OSTREL_WINEPREFIX), so no user setting is read or changed.
# In every build:
# - ostrel_cross_runtime(TARGET...): on Windows, copies the DLLs a program needs beside it
#   after it is built (the project's DLL, the compiler's C++ and GCC runtimes, winpthread),
#   so it runs from its build directory with no PATH set. Elsewhere it does nothing: a Linux
#   target finds its libraries through the run path and the emulator's sysroot.
# - OSTREL_CROSS_RUNNER: the command prefix that runs a target program on this host (the
#   emulator, empty when there is none), for tests that start a program from a script.

set(OSTREL_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH
    "GoogleTest sources, built for cross builds that have no GoogleTest of their own")

if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest REQUIRED)
else()
  find_package(GTest QUIET)
endif()
if(CMAKE_CROSSCOMPILING AND (NOT TARGET GTest::gtest OR NOT TARGET GTest::gmock))
  if(NOT EXISTS ${OSTREL_GTEST_SOURCE_DIR}/CMakeLists.txt)
    message(FATAL_ERROR "No GoogleTest for the cross build: neither in the target's root nor "
                        "as sources in ${OSTREL_GTEST_SOURCE_DIR} (Debian: apt-get install "
                        "googletest; or set OSTREL_GTEST_SOURCE_DIR)")
  endif()
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  # GoogleTest linked statically into each test program.
  set(ostrel_saved_shared ${BUILD_SHARED_LIBS})
  set(BUILD_SHARED_LIBS OFF)
  add_subdirectory(${OSTREL_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  set(BUILD_SHARED_LIBS ${ostrel_saved_shared})
endif()

if(CMAKE_CROSSCOMPILING)
  set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
endif()

if(WIN32 AND CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  # A 64-bit program goes to Wine's 64-bit loader directly: the plain `wine` starts the
  # 32-bit loader whenever 32-bit Wine is installed, which a kernel without 32-bit x86
  # support cannot execute.
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    find_program(OSTREL_WINE_LOADER NAMES wine64 wine PATHS /usr/lib/wine /usr/lib64/wine)
  else()
    find_program(OSTREL_WINE_LOADER NAMES wine PATHS /usr/lib/wine NO_DEFAULT_PATH)
    find_program(OSTREL_WINE_LOADER NAMES wine)
  endif()
  if(OSTREL_WINE_LOADER)
    set(OSTREL_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix CACHE PATH
        "Wine prefix for running the cross-built programs")
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_COMMAND} -E env WINEPREFIX=${OSTREL_WINEPREFIX}
        WINEDEBUG=-all WINEDLLOVERRIDES=winemenubuilder.exe=d DISPLAY= ${OSTREL_WINE_LOADER})
  endif()
endif()
set(OSTREL_CROSS_RUNNER ${CMAKE_CROSSCOMPILING_EMULATOR})

include(${CMAKE_CURRENT_LIST_DIR}/OstrelRuntimeDlls.cmake)

function(ostrel_cross_runtime)
  if(NOT WIN32)
    return()
  endif()
  # A target of its own rather than a post-build step, so that it may name a program made in
  # another directory.
  foreach(target IN LISTS ARGN)
    add_custom_target(${target}_runtime ALL
      COMMAND ${CMAKE_COMMAND} -E copy_if_different
              ${OSTREL_RUNTIME_DLLS} $<TARGET_RUNTIME_DLLS:${target}>
              $<TARGET_FILE_DIR:${target}>
      DEPENDS ${target} COMMENT "Runtime DLLs beside ${target}" COMMAND_EXPAND_LISTS VERBATIM)
  endforeach()
endfunction()
