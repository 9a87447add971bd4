# SPDX-License-Identifier: GPL-3.0-or-later
#
# The Debian package: what `cpack` needs to know. scripts/package runs it, for this machine's
# architecture or another. FinishDebianPackage.cmake makes of the installed files what Debian expects.

set(KESTREL_RUNTIME_DIR
    ""
    CACHE PATH "Directory of unpacked Debian packages whose libraries the programs run with; \
empty: those of this machine")

set(version "${PROJECT_VERSION}")
set(description
    "kestrel boots, tunes and plays a DAB/DAB+ and FM receiver on an add-on board
of a Raspberry Pi, over SPI. It reports reception, services, station text and
RDS, as text or JSON, and scans the band into a file. The receiver plays on
when the program has ended.

kestrelctl is the radio for every day: stations by name, presets, volume. It
brings a service that plays the last station from boot on, and leaves it off.

kestrel-sim is kestrel on a simulated board, which any machine has.")
get_property(stand_ins GLOBAL PROPERTY KESTREL_STAND_INS)
if(stand_ins)
  string(APPEND version "+standin")
  list(JOIN stand_ins ", " names)
  string(
    APPEND
    description
    "

This package was built without the receiver's own images. In place of
${names}
it has stand-ins, which boot the simulated receiver only: it does not
boot a real one.")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME kestrel)
set(CPACK_PACKAGE_VERSION "${version}")
set(CPACK_PACKAGE_CONTACT "kestrel maintainers <maintainers@kestrel.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
                                                GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/FinishDebianPackage.cmake")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION hamradio)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "${description}")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Of Install.cmake, as names.
list(TRANSFORM units REPLACE ".*/" "")
list(JOIN units " " KESTREL_UNITS)
foreach(script postinst prerm postrm)
  configure_file("packaging/${script}" "package/${script}" @ONLY)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/package/${script}")
endforeach()
if(TARGET kestrelctl)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/conffiles")
endif()
if(CMAKE_CROSSCOMPILING)
  # Of the toolchain file; otherwise it is the architecture of this machine.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${debian_architecture}")
endif()
set(CPACK_KESTREL_SOURCE_DIR "${PROJECT_SOURCE_DIR}")
set(CPACK_KESTREL_RUNTIME_DIR "${KESTREL_RUNTIME_DIR}")
include(CPack)
