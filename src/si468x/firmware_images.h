// SPDX-License-Identifier: GPL-3.0-or-later
//
// The images that the receiver is booted from, as the build took them from the firmware directory.
#pragma once

// Unmangled: the assembler defines them.
extern "C" {
extern const unsigned char fw_rom00_patch016bin[5796];      ///< boot patch, loaded first
extern const unsigned char fw_dab_radio_5_0_5bin[521448];   ///< DAB receiver
extern const unsigned char fw_fmhd_radio_5_0_4bin[530180];  ///< FM-HD receiver
}
