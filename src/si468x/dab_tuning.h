// SPDX-License-Identifier: GPL-3.0-or-later
//
// The chip tunes an ensemble by an index into the frequency list that it holds. Reading and writing
// that list, tuning, and judging whether an ensemble is there; `tune_freq` is the front end's
// `frequency` option, Si468x_DAB_tune_freq_save serves the scan.
#pragma once

#include <cstdint>

#include "si468x/dab_status.h"

/// The longest frequency list that the chip takes.
inline constexpr unsigned char dab_freq_list_limit = 48;
/// The longest one that it can claim to have.
inline constexpr unsigned char dab_freq_list_claim_limit = 255;

/// Replace the chip's list, until its next boot, by the `count` (0 to 48) frequencies in `list`, in
/// kHz. 0, or a negative result with code 20; -6 and nothing sent for a longer list.
std::int16_t Si468x_DAB_set_freq_list(unsigned int* list, unsigned char count);

/// Read the chip's list, in kHz, into `list`, and its length into `*count`. The chip may claim any
/// length of one byte, so `list` has room for 255. 0; a negative result with code 19 (`*count` is
/// 0) or 119 (`list` untouched).
std::int16_t Si468x_DAB_get_freq_list(unsigned int* list, unsigned char* count);

/// Tune to `index` of the chip's list and wait for seek/tune complete (see wait_for_seek_tune: its
/// results, code 121), or the protocol's result with code 21.
std::int16_t Si468x_DAB_tune_freq(unsigned char index);

/// Tune to `index`, fill `status`, and judge. 1: an ensemble is there and its service list is
/// stable; 0: nothing usable (no valid signal, or FIC quality below 30). Negative: -1 with code 365
/// when no service list became stable in 50 polls 200 ms apart; -2 or below for a failed tune (code
/// 65), status read (165; `status` keeps its contents) or event read (265).
std::int16_t Si468x_DAB_tune_freq_save(unsigned char index, Si468x_DAB_digrad_status& status);

/// Tune to `index` and wait up to 2.5 s for an ensemble. 0 when one was acquired, whatever became
/// of the tune itself; else the tune's negative result, or -3 when nothing but the ensemble was
/// missing.
std::int16_t Si468x_DAB_tune_and_acquire(unsigned char index);

/// Command `frequency`: Si468x_DAB_tune_and_acquire with a message. 0 when one was
/// acquired, else -1.
std::int16_t tune_freq(unsigned char index);
