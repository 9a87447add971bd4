#!/bin/sh
# SPDX-License-Identifier: GPL-3.0-or-later
#
# driver_symbols_test.sh <nm> <driver library>
#
# The driver takes no memory from the heap and throws no exception: its objects ask for neither.
symbols="$("$1" --undefined-only --demangle "$2")" || exit 1
if ! echo "$symbols" | grep -q ' bcm2835_spi_transfern$'; then
  echo "$2 does not look like the driver"
  exit 1
fi
! echo "$symbols" | grep -E ' ([mc]alloc|realloc|strdup|operator new.*|__cxa_(throw|allocate).*|std::__throw.*)$'
