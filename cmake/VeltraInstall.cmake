# SPDX-License-Identifier: GPL-3.0-or-later
# cmake --install: the module, the tools, the boundary headers, a pkg-config file, and a CMake package for hosts:
#
#   find_package(veltratune_io REQUIRED)
#   target_link_libraries(my_host PRIVATE veltratune_io::veltratune_io)   # headers only
#   ${veltratune_io_MODULE}                                               # the module's file, to be loaded

include(CMakePackageConfigHelpers)

set(VELTRA_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/veltratune_io)

# The components are those of the packages, see VeltraPackages.cmake. Without a component everything is installed.
set(VELTRA_DEV_DOCDIR ${CMAKE_INSTALL_DATADIR}/doc/veltraio-dev)

install(TARGETS MorvaneVeltraIO LIBRARY DESTINATION ${VELTRA_INSTALL_MODULEDIR} COMPONENT module)
if(TARGET veltra)
  install(TARGETS veltra veltra-receiver RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(DIRECTORY examples/receivers DESTINATION ${CMAKE_INSTALL_DATADIR}/veltraio COMPONENT tools)
  install(FILES docs/json.md docs/simulated-receiver.md examples/scripts/measure-all
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/veltraio-tools COMPONENT tools)
endif()
install(DIRECTORY share/veltraio DESTINATION ${CMAKE_INSTALL_DATADIR} COMPONENT tools)
install(FILES protocol/veltraio.proto DESTINATION ${CMAKE_INSTALL_DATADIR}/veltraio/wireshark COMPONENT tools)
install(DIRECTORY plugin/include/veltratune_io DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(FILES README.md docs/host-guide.md docs/settings.md docs/filter-description.md
  DESTINATION ${VELTRA_DEV_DOCDIR} COMPONENT dev)
install(DIRECTORY examples/minimal-host DESTINATION ${VELTRA_DEV_DOCDIR}/examples COMPONENT dev)

configure_file(cmake/veltraio.pc.in ${CMAKE_BINARY_DIR}/veltraio.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/veltraio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

install(TARGETS veltratune_io EXPORT veltratune_io COMPONENT dev)
install(EXPORT veltratune_io
  NAMESPACE veltratune_io::
  FILE veltratune_ioTargets.cmake
  DESTINATION ${VELTRA_INSTALL_CMAKEDIR}
  COMPONENT dev)
configure_package_config_file(cmake/veltratune_ioConfig.cmake.in ${CMAKE_BINARY_DIR}/veltratune_ioConfig.cmake
  INSTALL_DESTINATION ${VELTRA_INSTALL_CMAKEDIR}
  PATH_VARS VELTRA_INSTALL_MODULEDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/veltratune_ioConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/veltratune_ioConfig.cmake ${CMAKE_BINARY_DIR}/veltratune_ioConfigVersion.cmake
  DESTINATION ${VELTRA_INSTALL_CMAKEDIR} COMPONENT dev)
