# SPDX-License-Identifier: GPL-3.0-or-later
#
# Turns the three images that the receiver is booted from into constant arrays: the assembler
# includes each file as it is. A file that is there must have the one size that the driver sends; a
# file that is not there is replaced at build time by a stand-in of that size, which the simulated
# receiver boots and a real one does not.

set(KESTREL_FIRMWARE_DIR
    "${PROJECT_SOURCE_DIR}/firmware"
    CACHE PATH "Directory of the receiver's boot patch and firmware images")

# kestrel_firmware_image(<symbol> <file name> <size in bytes>)
#
# Appends the image to the assembly text in `firmware_assembly`, its file to `firmware_files`, and
# its name to `firmware_missing` when a stand-in takes its place.
function(kestrel_firmware_image symbol file_name size)
  set(file "${KESTREL_FIRMWARE_DIR}/${file_name}")
  if(EXISTS "${file}")
    file(SIZE "${file}" found)
    if(NOT found EQUAL size)
      message(FATAL_ERROR "${file} has ${found} bytes; this image must have ${size} bytes")
    endif()
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
  else()
    set(file "${CMAKE_CURRENT_BINARY_DIR}/stand-in/${file_name}")
    add_custom_command(
      OUTPUT "${file}"
      COMMAND ${CMAKE_COMMAND} "-DFILE=${file}" "-DNAME=${file_name}" "-DSIZE=${size}" -P
              "${PROJECT_SOURCE_DIR}/cmake/MakeStandIn.cmake"
      DEPENDS "${PROJECT_SOURCE_DIR}/cmake/MakeStandIn.cmake"
      COMMENT "Making a stand-in for ${file_name}"
      VERBATIM)
    set(firmware_missing
        ${firmware_missing} ${file_name}
        PARENT_SCOPE)
  endif()
  string(
    CONCAT text
           "        .global ${symbol}\n"
           "        .type ${symbol}, %object\n"
           "        .balign 4\n"
           "${symbol}:\n"
           "        .incbin \"${file}\"\n"
           "        .size ${symbol}, ${size}\n")
  set(firmware_assembly
      "${firmware_assembly}${text}"
      PARENT_SCOPE)
  set(firmware_files
      ${firmware_files} "${file}"
      PARENT_SCOPE)
endfunction()

# kestrel_add_firmware(<target>): compiles the three images into the target. The global property
# KESTREL_STAND_INS then names those that a stand-in takes the place of.
function(kestrel_add_firmware target)
  # An image that is put in place later makes the build configure itself again.
  file(GLOB present CONFIGURE_DEPENDS "${KESTREL_FIRMWARE_DIR}/*.bin")
  kestrel_firmware_image(fw_rom00_patch016bin rom00_patch016.bin 5796)
  kestrel_firmware_image(fw_dab_radio_5_0_5bin dab_radio_5_0_5.bin 521448)
  kestrel_firmware_image(fw_fmhd_radio_5_0_4bin fmhd_radio_5_0_4.bin 530180)
  if(firmware_missing)
    list(JOIN firmware_missing ", " names)
    message(NOTICE "Warning: no ${names} in ${KESTREL_FIRMWARE_DIR}; stand-ins are built in. "
                   "Such a kestrel can boot the simulated receiver only.")
  endif()
  set_property(GLOBAL PROPERTY KESTREL_STAND_INS ${firmware_missing})
  set(source "${CMAKE_CURRENT_BINARY_DIR}/firmware_images.S")
  file(CONFIGURE OUTPUT "${source}" @ONLY CONTENT [[
        .section .rodata
@firmware_assembly@
        .section .note.GNU-stack,"",%progbits
]])
  set_source_files_properties("${source}" PROPERTIES OBJECT_DEPENDS "${firmware_files}")
  target_sources(${target} PRIVATE "${source}")
endfunction()
