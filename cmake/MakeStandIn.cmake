# SPDX-License-Identifier: GPL-3.0-or-later
#
# cmake -DFILE=<path> -DNAME=<image> -DSIZE=<bytes> -P MakeStandIn.cmake
#
# Writes SIZE bytes of 32-byte lines, each with its own number, so that a chunk that is lost,
# repeated or out of place shows in whatever receives the image.

math(EXPR lines "${SIZE} / 32 + 1")
string(SUBSTRING "${NAME}                       " 0 23 label)
foreach(line RANGE 1 ${lines})
  math(EXPR number "1000000 + ${line}")
  string(APPEND content "${label} ${number}\n")
endforeach()
string(SUBSTRING "${content}" 0 ${SIZE} content)
file(WRITE "${FILE}" "${content}")
