# SPDX-License-Identifier: GPL-3.0-or-later
#
# Run by cpack when the files of the package lie in their places: adds the copyright and the changelog
# in Debian's form, compresses what Debian has compressed, and finds out which packages the programs
# need.

set(usr "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr")
set(documents "${usr}/share/doc/${CPACK_PACKAGE_NAME}")
set(packaging "${CPACK_KESTREL_SOURCE_DIR}/packaging")

file(COPY "${packaging}/copyright" DESTINATION "${documents}")
if(EXISTS "${usr}/bin/kestrelctl")
  set(rotations "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/etc/logrotate.d")
  file(MAKE_DIRECTORY "${rotations}")
  file(COPY_FILE "${packaging}/logrotate" "${rotations}/kestrel")
  file(CHMOD "${rotations}/kestrel" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()

# The newest section of the changelog. The date is that of SOURCE_DATE_EPOCH when it is set.
file(READ "${CPACK_KESTREL_SOURCE_DIR}/CHANGELOG.md" changes)
string(REGEX REPLACE "^[^#]*# [^\n]*\n+## [^\n]*\n+" "" changes "${changes}")
string(REGEX REPLACE "\n+## .*" "" changes "${changes}")
string(STRIP "${changes}" changes)
# An item is one line for fold.
string(REGEX REPLACE "\n +" " " changes "${changes}")
file(WRITE "${documents}/changelog" "${changes}\n")
execute_process(
  COMMAND fold -s -w 74 "${documents}/changelog"
  COMMAND sed -E "s/ +$//; /^- /!s/^/    /; s/^- /  * /"
  OUTPUT_VARIABLE changes COMMAND_ERROR_IS_FATAL ANY)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(
  WRITE "${documents}/changelog"
  "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
  "${changes}\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")

file(GLOB manuals "${usr}/share/man/*/*.[1-9]")
execute_process(COMMAND gzip -9n ${manuals} "${documents}/changelog" COMMAND_ERROR_IS_FATAL ANY)
file(
  CHMOD "${documents}/changelog.gz" "${documents}/copyright"
  PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# dpkg-shlibdeps reads the package's name from a source tree, and takes libraries from unpacked
# packages where they are of another architecture.
set(tree "${CPACK_TEMPORARY_DIRECTORY}.shlibdeps")
file(WRITE "${tree}/debian/control" "Source: ${CPACK_PACKAGE_NAME}\n\n"
                                    "Package: ${CPACK_PACKAGE_NAME}\nArchitecture: any\n")
set(libraries "")
if(CPACK_KESTREL_RUNTIME_DIR)
  file(GLOB libraries "${CPACK_KESTREL_RUNTIME_DIR}/*")
  list(TRANSFORM libraries PREPEND "-S")
  set(ENV{DEB_HOST_ARCH} "${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}")
endif()
file(GLOB programs "${usr}/bin/*")
execute_process(
  COMMAND dpkg-shlibdeps -O ${libraries} ${programs}
  WORKING_DIRECTORY "${tree}"
  OUTPUT_VARIABLE depends
  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "shlibs:Depends=" "" CPACK_DEBIAN_PACKAGE_DEPENDS "${depends}")
