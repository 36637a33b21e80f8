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

# The BER readers' shared helpers, the policies' call frame and CertID checker, and the
# object model stay behind: what they declare is hidden in libchainvet.so, so a program
# including them could not link (the object model also needs the generated catalogue).
foreach(dir core asn1rt asn1data policies)
  install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/chainvet/${dir}
    FILES_MATCHING PATTERN "*.h"
    REGEX "/asn1rt/ber_decode_internal\\.h$" EXCLUDE
    REGEX "/policies/(frame|ocsp_certid)\\.h$" EXCLUDE)
endforeach()
install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/platform/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/chainvet)

install(EXPORT chainvetTargets NAMESPACE chainvet::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/chainvet)
set(CHAINVET_INCLUDE_INSTALL_DIR ${CMAKE_INSTALL_INCLUDEDIR}/chainvet)
configure_package_config_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/chainvetConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/chainvetConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/chainvet
  PATH_VARS CHAINVET_INCLUDE_INSTALL_DIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/chainvetConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/chainvetConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/chainvetConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/chainvet)

# chainvet.pc names the prefix the copy is installed under (cmake --install --prefix, cpack),
# so it is completed at install time; DESTDIR stays out of it, as out of any staged file.
set(CHAINVET_PC_PREFIX "@CMAKE_INSTALL_PREFIX@")
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/chainvet.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/chainvet.pc.in @ONLY)
install(CODE "
  set(chainvet_pc \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/chainvet.pc\")
  message(STATUS \"Installing: \${chainvet_pc}\")
  configure_file(\"${CMAKE_CURRENT_BINARY_DIR}/chainvet.pc.in\" \"\${chainvet_pc}\" @ONLY)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${chainvet_pc}\")")
