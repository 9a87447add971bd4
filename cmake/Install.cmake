# SPDX-License-Identifier: GPL-3.0-or-later
#
# Where `cmake --install` puts the programs and what belongs to them. The Debian package is made of
# the same files.

include(GNUInstallDirs)
set(manuals "${CMAKE_INSTALL_MANDIR}/man1")
set(bash_completions "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")

install(TARGETS kestrel)
install(FILES docs/kestrel.1 DESTINATION "${manuals}")
if(TARGET kestrel-sim)
  install(TARGETS kestrel-sim)
  install(FILES docs/kestrel-sim.1 DESTINATION "${manuals}")
endif()
set(completed kestrel)
if(TARGET kestrelctl)
  install(TARGETS kestrelctl)
  install(FILES docs/kestrelctl.1 DESTINATION "${manuals}")
  list(APPEND completed kestrelctl)
  file(GLOB units CONFIGURE_DEPENDS packaging/*.service)
endif()
if(TARGET kestrelctl-sim)
  install(TARGETS kestrelctl-sim)
  file(WRITE "${PROJECT_BINARY_DIR}/kestrelctl-sim.1" ".so man1/kestrelctl.1\n")
  install(FILES "${PROJECT_BINARY_DIR}/kestrelctl-sim.1" DESTINATION "${manuals}")
endif()

# bash-completion looks for a file of the program's name: one is a link to the other.
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/completion")
foreach(program ${completed})
  install(
    FILES "completion/${program}.bash"
    DESTINATION "${bash_completions}"
    RENAME ${program})
  if(TARGET ${program}-sim)
    file(CREATE_LINK ${program} "${PROJECT_BINARY_DIR}/completion/${program}-sim" SYMBOLIC)
    install(FILES "${PROJECT_BINARY_DIR}/completion/${program}-sim"
            DESTINATION "${bash_completions}")
  endif()
endforeach()

# What depends on the prefix, which is certain only when the files are installed: zsh of Debian looks
# for completions in another folder below /usr than elsewhere, and the units name the program.
list(TRANSFORM completed REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/completion/_\\1")
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/units")
install(CODE "set(completions \"${completed}\")
  set(units \"${units}\")
  set(sandbox \"${PROJECT_SOURCE_DIR}/packaging/kestrel-.service.d\")
  set(scratch \"${PROJECT_BINARY_DIR}/units\")")
install(
  CODE [[
  set(zsh_folder site-functions)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(zsh_folder vendor-completions)
  endif()
  file(INSTALL ${completions} DESTINATION "${CMAKE_INSTALL_PREFIX}/share/zsh/${zsh_folder}")
  foreach(unit ${units})
    cmake_path(GET unit FILENAME name)
    file(READ "${unit}" text)
    string(REPLACE "/usr/bin/" "${CMAKE_INSTALL_PREFIX}/bin/" text "${text}")
    file(WRITE "${scratch}/${name}" "${text}")
    file(INSTALL "${scratch}/${name}" "${sandbox}"
         DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/systemd/system")
  endforeach()]])

if(TARGET kestrelctl)
  install(FILES packaging/kestrel-alerts.yml DESTINATION "${CMAKE_INSTALL_DATADIR}/kestrel")
endif()

# The folders stay, so that the links between the documents hold.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES firmware/README.md DESTINATION "${CMAKE_INSTALL_DOCDIR}/firmware")
install(
  DIRECTORY docs
  DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  FILES_MATCHING
  PATTERN "*.md")
