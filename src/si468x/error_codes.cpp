// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/error_codes.h"

std::uint32_t Si468x_ErrorCode = 0;

void Si468x_failure(std::int16_t /*result*/, std::uint32_t code) { Si468x_ErrorCode = code; }

std::int16_t si468x::failed(Error code, std::int16_t result) {
  Si468x_failure(result, static_cast<std::uint32_t>(code));
  return result;
}
