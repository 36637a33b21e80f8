# `cpack` in a build tree: one Debian package of what cmake/install.cmake installs (the
# library, its headers, libqvcapi, chainvet, the CMake package and chainvet.pc) under /usr.
if(NOT CHAINVET_REAL_PLATFORM)
  return()
endif()

set(CHAINVET_PACKAGE_MAINTAINER "chainvet developers <chainvet-dev@example.org>"
  CACHE STRING "Maintainer field of the Debian package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME chainvet)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${CHAINVET_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "certificate chain policies, ASN.1 runtime and PKI object model")
# The summary is the synopsis; cpack indents these lines and marks the empty one.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "libchainvet decides whether the end certificate of a built chain may be
used for a purpose (signature, timestamp signing, OCSP signing, basic
constraints), over a BER/DER ASN.1 runtime, a catalogue of PKI types and an
object model of them.

This package carries libchainvet.so.0 with its headers, CMake package and
pkg-config file, libqvcapi.so.1 (the CryptoAPI stand-in over GnuTLS and
Nettle) and the chainvet program.")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
find_program(CHAINVET_DPKG dpkg)
if(CHAINVET_DPKG)
  execute_process(COMMAND ${CHAINVET_DPKG} --print-architecture
    OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

# Dependencies come from dpkg-shlibdeps (dpkg-dev): versioned by the symbols the binaries
# use, and right on another release where the GnuTLS or Nettle package names differ.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# libqvcapi.so.1 is needed by the others and ships in this package, not in the system.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS usr/${CMAKE_INSTALL_LIBDIR})

# Built RelWithDebInfo (the configuration the tests run) and stripped as it is packed: the
# debug sections are most of the library's size, and they stay in the build tree.
set(CPACK_STRIP_FILES ON)

# cpack installs into its staging root as DESTDIR under this prefix, so chainvet.pc, which
# is completed at install time, names /usr.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

include(CPack)
