#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
#
# protocol_document_test.sh <source directory>
#
# docs/protocol.md must list exactly the opcodes, results and error codes that the headers define, with
# the same numbers, names and texts.
set -uo pipefail

headers="$1/src/si468x"
document="$1/docs/protocol.md"
failures=0

# compare <what> <definitions in the header> <pattern of a definition> <pattern of a row>
#
# The patterns give number, name and text; the definitions are counted by themselves, so that one that a
# pattern misses shows.
compare() {
  local defined shown
  defined="$(sed -nE "$3" <<<"$2" | sort)"
  shown="$(sed -nE "$4" "$document" | sort)"
  echo "$1: $(wc -l <<<"$defined") defined"
  if [ "$(wc -l <<<"$defined")" -ne "$(wc -l <<<"$2")" ]; then
    echo "$1: a definition that has no text or is written differently"
    ((++failures))
  fi
  if ! diff <(echo "$defined") <(echo "$shown"); then
    echo "$1: < stands in the header only, > in the document only"
    ((++failures))
  fi
}

compare opcodes "$(sed -n '/^namespace opcode/,/^}/p' "$headers/protocol.h" | grep constexpr)" \
  's/^.*uint8_t ([a-z_]+) = (0x[0-9A-F]{2});$/\2 \1/p' \
  's/^\| (0x[0-9A-F]{2}) \| `([a-z_]+)` \|.*$/\1 \2/p'
# Success is no row.
compare results \
  "$(sed -n '/^namespace result/,/^}/p' "$headers/error_codes.h" | grep constexpr | grep -v ' ok = 0;')" \
  's|^.*int16_t ([a-z_]+) = (-[0-9]+); +///< (.*)$|\2 \1 \3|p' \
  's/^\| (-[0-9]+) \| `([a-z_]+)` \| (.*) \|$/\1 \2 \3/p'
compare "error codes" "$(sed -n '/^enum class Error/,/^}/p' "$headers/error_codes.h" | grep ' = ')" \
  's|^ *([a-z_]+) = ([0-9]+), +///< (.*)$|\2 \1 \3|p' \
  's/^\| ([0-9]+) \| `([a-z_]+)` \| (.*) \|$/\1 \2 \3/p'
exit $((failures > 0))
