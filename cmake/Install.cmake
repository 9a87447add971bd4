# SPDX-License-Identifier: GPL-3.0-or-later
#
# Where `cmake --install` puts the programs and what belongs to them. The Debian package is made of
# the same files.

include(GNUInstallDirs)
install(TARGETS kestrel kestrel-sim)
install(FILES docs/kestrel.1 docs/kestrel-sim.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
if(TARGET kestrelctl)
  install(TARGETS kestrelctl)
  install(FILES docs/kestrelctl.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
  install(
    FILES completion/kestrelctl.bash
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
    RENAME kestrelctl)
  install(FILES completion/_kestrelctl DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
endif()

# bash-completion looks for a file of the program's name: one is a link to the other.
set(bash_completions "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
set(bash_link "${PROJECT_BINARY_DIR}/completion/kestrel-sim")
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/completion")
file(CREATE_LINK kestrel "${bash_link}" SYMBOLIC)
install(
  FILES completion/kestrel.bash
  DESTINATION "${bash_completions}"
  RENAME kestrel)
install(FILES "${bash_link}" DESTINATION "${bash_completions}")
install(FILES completion/_kestrel DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")

if(TARGET kestrelctl)
  install(FILES packaging/kestrel-alerts.yml DESTINATION "${CMAKE_INSTALL_DATADIR}/kestrel")
endif()

# The folders stay, so that the links between the documents hold.
install(FILES README.md CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES firmware/README.md DESTINATION "${CMAKE_INSTALL_DOCDIR}/firmware")
install(
  DIRECTORY docs
  DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  FILES_MATCHING
  PATTERN "*.md")
