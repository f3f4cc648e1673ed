# SPDX-License-Identifier: GPL-3.0-or-later
# cmake --install: the module, the tools, the boundary headers, and a CMake package for hosts:
#
#   find_package(veltratune_io REQUIRED)
#   target_link_libraries(my_host PRIVATE veltratune_io::veltratune_io)   # headers only
#   ${veltratune_io_MODULE}                                               # the module's file, to be loaded

include(CMakePackageConfigHelpers)

set(VELTRA_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/veltratune_io)

install(TARGETS MorvaneVeltraIO LIBRARY DESTINATION ${VELTRA_INSTALL_MODULEDIR})
if(TARGET veltra)
  install(TARGETS veltra veltra-receiver RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(DIRECTORY examples/receivers DESTINATION ${CMAKE_INSTALL_DATADIR}/veltraio)
endif()
install(DIRECTORY share/veltraio DESTINATION ${CMAKE_INSTALL_DATADIR})
install(FILES protocol/veltraio.proto DESTINATION ${CMAKE_INSTALL_DATADIR}/veltraio/wireshark)
install(DIRECTORY plugin/include/veltratune_io DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES LICENSE README.md docs/host-guide.md docs/settings.md docs/filter-description.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(TARGETS veltratune_io EXPORT veltratune_io)
install(EXPORT veltratune_io
  NAMESPACE veltratune_io::
  FILE veltratune_ioTargets.cmake
  DESTINATION ${VELTRA_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/veltratune_ioConfig.cmake.in ${CMAKE_BINARY_DIR}/veltratune_ioConfig.cmake
  INSTALL_DESTINATION ${VELTRA_INSTALL_CMAKEDIR}
  PATH_VARS VELTRA_INSTALL_MODULEDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/veltratune_ioConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/veltratune_ioConfig.cmake ${CMAKE_BINARY_DIR}/veltratune_ioConfigVersion.cmake
  DESTINATION ${VELTRA_INSTALL_CMAKEDIR})
