# SPDX-License-Identifier: GPL-3.0-or-later
# Debian packages by `cpack -G DEB`, see scripts/package, and what is only made for them: man pages and completions.

find_program(HELP2MAN help2man)

if(TARGET veltra AND NOT CMAKE_CROSSCOMPILING AND NOT VELTRA_SANITIZE)
  set(made ${CMAKE_BINARY_DIR}/packaging)
  file(MAKE_DIRECTORY ${made})
  set(outputs)

  foreach(program IN ITEMS veltra veltra-receiver)
    foreach(shell IN ITEMS bash zsh fish)
      add_custom_command(OUTPUT ${made}/${program}.${shell}
        COMMAND ${program} --completion ${shell} > ${made}/${program}.${shell}
        DEPENDS ${program} VERBATIM)
      list(APPEND outputs ${made}/${program}.${shell})
    endforeach()
    install(FILES ${made}/${program}.bash RENAME ${program}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools OPTIONAL)
    install(FILES ${made}/${program}.zsh RENAME _${program}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools OPTIONAL)
    install(FILES ${made}/${program}.fish
      DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools OPTIONAL)
  endforeach()

  if(HELP2MAN)
    set(about_veltra "load room-correction filters into A/V receivers and measure with them")
    set(about_veltra-receiver "a simulated A/V receiver")
    foreach(program IN ITEMS veltra veltra-receiver)
      add_custom_command(OUTPUT ${made}/${program}.1.gz
        COMMAND ${HELP2MAN} --no-info --help-option=--help-all --version-string=${PROJECT_VERSION} --source=VeltraIO
                --name=${about_${program}} --output=${made}/${program}.1 $<TARGET_FILE:${program}>
        COMMAND gzip -9nf ${made}/${program}.1
        DEPENDS ${program} VERBATIM)
      list(APPEND outputs ${made}/${program}.1.gz)
      install(FILES ${made}/${program}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools OPTIONAL)
    endforeach()
  else()
    message(STATUS "Without man pages: help2man is not installed")
  endif()

  # Not part of `all`: only packages need them, and the preset "package" builds them.
  add_custom_target(packaging_files DEPENDS ${outputs})
endif()

set(VELTRA_PACKAGE_MAINTAINER "Veltra Labs Ltd <packages@veltralabs.com>" CACHE STRING "Maintainer of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME veltraio)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_CONTACT ${VELTRA_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_OUTPUT_FILE_PREFIX ${CMAKE_BINARY_DIR}/packages)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL module tools dev)
if(TARGET veltra_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)

set(same_version "(= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_MODULE_PACKAGE_NAME veltraio)
set(CPACK_DEBIAN_MODULE_PACKAGE_SECTION sound)
set(CPACK_COMPONENT_MODULE_DESCRIPTION "device plug-in of a room-correction application for A/V receivers
A shared library that an application loads to find an audio/video receiver
on the local network, to measure the room through it, and to download
room-correction filters into it.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME veltraio-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "veltraio ${same_version}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "gnuplot-nox | gnuplot")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command-line host and simulated receiver of VeltraIO
The program veltra loads filters into A/V receivers and measures with them,
the program veltra-receiver simulates such a receiver.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME veltraio-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "veltraio ${same_version}")
set(CPACK_COMPONENT_DEV_DESCRIPTION "headers and documents for applications that load VeltraIO
The boundary headers, a CMake package, a pkg-config file, the documents for
the makers of applications, and a minimal host.")

if(TARGET veltra_python)
  set(next_python "${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}")
  math(EXPR following "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-veltraio)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "veltraio ${same_version}, python3 (>= ${next_python}), python3 (<< ${Python_VERSION_MAJOR}.${following}), python3-numpy")
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Python package of VeltraIO
Finds A/V receivers, measures rooms through them as NumPy arrays, and
downloads room-correction filters.")
endif()

# Every package has its licence and its changelog. The documents of Debian are compressed without a time.
string(TIMESTAMP today "%a, %d %b %Y 00:00:00 +0000" UTC)
file(WRITE ${CMAKE_BINARY_DIR}/packaging/changelog
  "veltraio (${PROJECT_VERSION}) unstable; urgency=medium\n\n  * Version ${PROJECT_VERSION}.\n\n -- ${VELTRA_PACKAGE_MAINTAINER}  ${today}\n")
execute_process(COMMAND gzip -9nf ${CMAKE_BINARY_DIR}/packaging/changelog)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES packaging/copyright ${CMAKE_BINARY_DIR}/packaging/changelog.gz DESTINATION ${documents}
    COMPONENT ${component})
endforeach()

include(CPack)
