# Installed copy: libchainvet.so.0 with its headers, the platform stand-in, a CMake
# package (find_package(chainvet) -> chainvet::chainvet) and chainvet.pc.
include(CMakePackageConfigHelpers)

if(NOT CHAINVET_REAL_PLATFORM)
  return()
endif()

install(TARGETS chainvet qvcapi chainvet_objs_iface qvcapi_headers
  EXPORT chainvetTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

foreach(dir core asn1rt asn1data pki policies)
  install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/chainvet/${dir}
    FILES_MATCHING PATTERN "*.h")
endforeach()
install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/platform/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/chainvet)

install(EXPORT chainvetTargets NAMESPACE chainvet::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/chainvet)
configure_package_config_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/chainvetConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/chainvetConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/chainvet)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/chainvetConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/chainvetConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/chainvetConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/chainvet)

configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/chainvet.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/chainvet.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/chainvet.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
