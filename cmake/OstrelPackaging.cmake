# Binary packages through CPack, from a build configured for them:
#
# - Debian (OSTREL_PACKAGE_DEBIAN=ON, prefix /usr; `./run.sh package`): one package per install
#   component: libostrel0 (runtime: the shared library), libostrel-dev (dev: headers, the
#   unversioned .so, CMake package and pkg-config file) and ostrel (program), each with its
#   copyright file and changelog as Debian's tools expect. Dependencies on the system come
#   from dpkg-shlibdeps; libostrel0 carries a shlibs file, so other packages get theirs too.
# - Windows (a mingw-w64 build; `./run.sh package-windows`): one zip with bin/ (libostrel.dll,
#   ostrel.exe and the compiler's runtime DLLs), include/, lib/ (import library, CMake
#   package, pkg-config file) and README.txt.
option(OSTREL_PACKAGE_DEBIAN "Install the files Debian packages carry (copyright, changelog)" OFF)

set(CPACK_PACKAGE_NAME ostrel)
set(CPACK_PACKAGE_VENDOR "The Ostrel developers")
set(CPACK_PACKAGE_CONTACT "The Ostrel developers <ostrel@example.org>" CACHE STRING
    "Maintainer named in the packages")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_SOURCE_IGNORE_FILES "/build.*/" "/dist/" "/\\\\.git")
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_SOURCE_DIR}/dist)

set(ostrel_pkg_dir ${PROJECT_SOURCE_DIR}/packaging)

if(WIN32)
  # A user unpacks the zip and runs bin/ostrel.exe as it is: the DLLs it loads lie beside it.
  include(${PROJECT_SOURCE_DIR}/cmake/OstrelRuntimeDlls.cmake)
  install(FILES ${OSTREL_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  install(FILES ${ostrel_pkg_dir}/windows/README.txt DESTINATION . COMPONENT runtime)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(ostrel_win_arch win64)
  else()
    set(ostrel_win_arch win32)
  endif()
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME ostrel-${PROJECT_VERSION}-${ostrel_win_arch})
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENTS_ALL runtime dev program)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # The program's own library is found in this build while dpkg-shlibdeps looks at it.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

  # Each component's description: the synopsis line, then the long text (CPack indents it).
  set(ostrel_long_description
"Ostrel gives business programs one library for what they all need: a
named-value container that carries parameters, settings and results between
modules, reference-counted interfaces, CP1251 text with its own case tables,
Variant, Format and date conversions independent of the host locale, rounding
and amounts in words, an XML tree with its reader, writer and queries, date
periods, serial ports and barcode scanners, and the merge of form layouts.")

  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libostrel${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
  # The dynamic linker's cache is refreshed by dpkg's trigger, as for any library package.
  configure_file(${ostrel_pkg_dir}/debian/triggers ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers
                 COPYONLY)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers)
  set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
      "runtime component library for business applications\n${ostrel_long_description}\n\nThis package holds the shared library.")

  set(CPACK_DEBIAN_DEV_PACKAGE_NAME libostrel-dev)
  set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
  set(CPACK_COMPONENT_DEV_DEPENDS runtime)
  set(CPACK_COMPONENT_DEV_DESCRIPTION
      "runtime component library for business applications - development files\n${ostrel_long_description}\n\nThis package holds the headers, the CMake package (find_package(Ostrel))\nand the pkg-config file.")

  set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME ostrel)
  set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION utils)
  set(CPACK_COMPONENT_PROGRAM_DEPENDS runtime)
  set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
      "command-line program of the Ostrel library\nThe ostrel program shows the Ostrel library at work and uses it for\neveryday tasks: checking, formatting, querying and merging XML files,\nnumbers and amounts in words, date periods, drawing and merging form\nlayouts, and a terminal on a serial port or barcode scanner.")

  if(OSTREL_PACKAGE_DEBIAN)
    # Each package's /usr/share/doc/<package>/: the copyright file and the changelog,
    # compressed reproducibly (no name or time stamp in the gzip header).
    find_program(OSTREL_GZIP gzip REQUIRED)
    set(ostrel_changelog ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz)
    add_custom_command(OUTPUT ${ostrel_changelog}
      COMMAND ${OSTREL_GZIP} -9nc ${ostrel_pkg_dir}/debian/changelog > ${ostrel_changelog}
      DEPENDS ${ostrel_pkg_dir}/debian/changelog VERBATIM)
    add_custom_target(ostrel_debian_changelog ALL DEPENDS ${ostrel_changelog})
    foreach(comp runtime dev program)
      string(TOUPPER ${comp} COMP)
      set(pkg ${CPACK_DEBIAN_${COMP}_PACKAGE_NAME})
      install(FILES ${ostrel_pkg_dir}/debian/copyright ${ostrel_changelog}
              DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${pkg} COMPONENT ${comp})
    endforeach()
  endif()
endif()

include(CPack)
