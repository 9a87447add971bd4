# SPDX-License-Identifier: GPL-3.0-or-later
#
# What the toolchain files arm64.cmake and armhf.cmake have in common: Debian's cross compiler, QEMU
# to run what it makes, and the libraries that scripts/test-arm has unpacked for that architecture.
# Expects `debian_architecture`, `qemu`, CMAKE_SYSTEM_PROCESSOR and CMAKE_LIBRARY_ARCHITECTURE.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER "${CMAKE_LIBRARY_ARCHITECTURE}-g++")
# Libraries and headers of the machine that builds are never the right ones, its programs are.
cmake_path(SET libraries NORMALIZE
           "${CMAKE_CURRENT_LIST_DIR}/../build/arm-libraries/${debian_architecture}")
set(CMAKE_FIND_ROOT_PATH "${libraries}")
# What the libraries themselves need is there, too.
set(CMAKE_CXX_FLAGS_INIT "-isystem ${libraries}/usr/include/${CMAKE_LIBRARY_ARCHITECTURE}")
set(shared_libraries "${libraries}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}:${libraries}/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${shared_libraries}")
# An absolute path: the tests start the programs with an empty environment.
find_program(KESTREL_QEMU ${qemu} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
    "${KESTREL_QEMU};-E;LD_LIBRARY_PATH=${shared_libraries};-L;/usr/${CMAKE_LIBRARY_ARCHITECTURE}"
)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
