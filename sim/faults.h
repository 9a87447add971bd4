// SPDX-License-Identifier: GPL-3.0-or-later
//
// Faults as data: what goes wrong, and which frame it strikes. Tests put them
// into Settings; kestrel-sim reads them from KESTREL_SIM_FAULT. The injector
// that carries them out stands between the bus and the receiver.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace sim {

/// What goes wrong. A struck command carries the fault through all reads up to
/// the next command; a struck read carries it for that one read (`no_cts`: up
/// to the next command).
enum class Fault_kind : std::uint8_t {
  no_cts,           ///< clear-to-send stays low
  late_cts,         ///< clear-to-send stays low for `number` reads (0 means 3)
  command_error,    ///< the command is refused, STATUS0 bit 6
  dropped_write,    ///< the command is lost, STATUS3 bit 2
  dropped_read,     ///< STATUS3 bit 3
  arbiter_error,    ///< STATUS3 bit 1
  non_recoverable,  ///< STATUS3 bit 0
  all_ones,         ///< MISO stuck at 0xFF
  all_zeros,        ///< MISO stuck at 0x00
  garbage,          ///< MISO carries noise, `number` is the seed
  flipped_byte,     ///< byte `number` of each read arrives inverted
  short_reply,      ///< reads carry zeros from byte `number` on
  reset,            ///< the receiver loses power and comes back unbooted
  no_board,         ///< bcm2835_init fails
  no_spi,           ///< bcm2835_spi_begin fails
};

/// One fault and where it strikes. Frames and calls count from 0 in each run.
/// Neither `opcode` nor `nth`: every frame. Only `nth`: frame number `nth`.
/// Only `opcode`: every frame that begins with it (0x00: every read). Both: the
/// `nth` frame that begins with it. For no_board and no_spi `nth` counts calls
/// of the library function and `opcode` is not looked at.
struct Fault {
  Fault_kind kind = Fault_kind::no_cts;
  std::optional<std::uint8_t> opcode = std::nullopt;
  std::optional<std::uint32_t> nth = std::nullopt;
  std::uint32_t number = 0;
};

/// Read one fault in the form KIND[:NUMBER][@PLACE], PLACE being `all`,
/// `frame:N`, `call:N`, `opcode:XX` or `opcode:XX:N` with XX in hexadecimal.
/// Nothing when the text is no fault.
[[nodiscard]] std::optional<Fault> parse_fault(std::string_view text);

}  // namespace sim
