# SPDX-License-Identifier: GPL-3.0-or-later
#
# Toolchain file for the 64-bit Raspberry Pi OS: cmake --toolchain cmake/arm64.cmake

set(debian_architecture arm64)
set(qemu qemu-aarch64)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
include("${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake")
