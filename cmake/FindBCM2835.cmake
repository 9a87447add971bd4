# SPDX-License-Identifier: GPL-3.0-or-later
#
# Finds the C library for the GPIO and SPI peripherals of the Raspberry Pi (Debian: libbcm2835-dev).
#
# Cache variables, which a caller may set beforehand:
#   BCM2835_INCLUDE_DIR  directory of bcm2835.h
#   BCM2835_LIBRARY      the library itself
# Targets:
#   BCM2835::headers     the header alone, for code that some other library will be linked under
#   BCM2835::BCM2835     header and library

find_path(BCM2835_INCLUDE_DIR bcm2835.h)
find_library(BCM2835_LIBRARY bcm2835)
mark_as_advanced(BCM2835_INCLUDE_DIR BCM2835_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
  BCM2835
  REQUIRED_VARS BCM2835_LIBRARY BCM2835_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "On Debian and Raspberry Pi OS: sudo apt-get install libbcm2835-dev")

if(BCM2835_FOUND AND NOT TARGET BCM2835::BCM2835)
  add_library(BCM2835::headers INTERFACE IMPORTED)
  set_target_properties(BCM2835::headers PROPERTIES INTERFACE_INCLUDE_DIRECTORIES
                                                    "${BCM2835_INCLUDE_DIR}")
  add_library(BCM2835::BCM2835 UNKNOWN IMPORTED)
  set_target_properties(
    BCM2835::BCM2835 PROPERTIES IMPORTED_LOCATION "${BCM2835_LIBRARY}"
                                INTERFACE_INCLUDE_DIRECTORIES "${BCM2835_INCLUDE_DIR}")
endif()
