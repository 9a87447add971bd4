# SPDX-License-Identifier: GPL-3.0-or-later
#
# kestrel runs as root: every program is built the way Debian builds what runs with privileges.
# Two interface targets: kestrel_hardening for everything, kestrel_warnings for our own C++.

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(kestrel_hardening INTERFACE)
target_compile_options(
  kestrel_hardening
  INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fstack-protector-strong>
            $<$<COMPILE_LANGUAGE:CXX>:-Wformat>
            $<$<COMPILE_LANGUAGE:CXX>:-Werror=format-security>)
target_link_options(kestrel_hardening INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
target_compile_definitions(kestrel_hardening
                           INTERFACE $<$<COMPILE_LANGUAGE:CXX>:_GLIBCXX_ASSERTIONS>)
# _FORTIFY_SOURCE does nothing without optimisation, and the sanitizers check more than it does. The
# system's headers warn of a level that the compiler does not have.
if(NOT KESTREL_SANITIZE)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstdio>\nint main() {}" KESTREL_HAS_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
  target_compile_definitions(
    kestrel_hardening
    INTERFACE
      $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<NOT:$<CONFIG:Debug>>>:_FORTIFY_SOURCE=$<IF:$<BOOL:${KESTREL_HAS_FORTIFY_3}>,3,2>>
  )
endif()

include(CheckCXXCompilerFlag)
foreach(flag -fstack-clash-protection -fcf-protection)
  string(MAKE_C_IDENTIFIER "KESTREL_HAS${flag}" has_flag)
  check_cxx_compiler_flag(${flag} ${has_flag})
  if(${has_flag})
    target_compile_options(kestrel_hardening INTERFACE $<$<COMPILE_LANGUAGE:CXX>:${flag}>)
  endif()
endforeach()

add_library(kestrel_warnings INTERFACE)
target_compile_options(
  kestrel_warnings
  INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wall>
            $<$<COMPILE_LANGUAGE:CXX>:-Wextra>
            $<$<COMPILE_LANGUAGE:CXX>:-Wpedantic>
            $<$<COMPILE_LANGUAGE:CXX>:-Wconversion>
            $<$<COMPILE_LANGUAGE:CXX>:-Wshadow>)
target_link_libraries(kestrel_warnings INTERFACE kestrel_hardening)

if(KESTREL_SANITIZE)
  # More optimisation takes longer to compile than it saves in the tests.
  add_compile_options(-O1 -fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(KESTREL_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "KESTREL_FUZZ needs clang: configure with -DCMAKE_CXX_COMPILER=clang++")
  endif()
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fsanitize=fuzzer-no-link>)
endif()
