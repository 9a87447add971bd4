# SPDX-License-Identifier: GPL-3.0-or-later
#
# Toolchain file for a 32-bit system of ARMv7 and up: cmake --toolchain cmake/armhf.cmake

set(debian_architecture armhf)
set(qemu qemu-arm)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# No remarks on what changed in GCC 7: all C++ in the programs comes from one compiler.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include("${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake")
