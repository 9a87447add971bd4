// SPDX-License-Identifier: GPL-3.0-or-later
//
// Faults as data: what goes wrong, and which frame it strikes. Tests put them
// into Settings; kestrel-sim reads them from KESTREL_SIM_FAULT. The injector
// carries them out between the bus and the receiver.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "sim/receiver.h"
#include "sim/spi_device.h"

namespace sim {

/// What goes wrong. A struck command carries the fault through all reads up to the next command; a
/// struck read carries it for that one read (`no_cts`: up to the next command).
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

/// The name of a kind as KESTREL_SIM_FAULT has it.
std::string_view name_of(Fault_kind kind);

/// One fault and where it strikes. Frames count from 0 in each run.
/// Neither `opcode` nor `nth`: every frame. Only `nth`: frame number `nth`.
/// Only `opcode`: every frame that begins with it (0x00: every read). Both: the
/// `nth` frame that begins with it. no_board and no_spi strike every call.
struct Fault {
  Fault_kind kind = Fault_kind::no_cts;
  std::optional<std::uint8_t> opcode = std::nullopt;
  std::optional<std::uint32_t> nth = std::nullopt;
  std::uint32_t number = 0;
};

/// Read one fault in the form KIND[:NUMBER][@PLACE], PLACE being `all`, `frame:N`, `opcode:XX` or
/// `opcode:XX:N` with XX in hexadecimal. Nothing when the text is not a fault.
std::optional<Fault> parse_fault(std::string_view text);

class Fault_injector final : public Spi_device {
 public:
  Fault_injector(Receiver& receiver, const std::vector<Fault>& faults);

  void select() override;
  std::uint8_t exchange(std::uint8_t mosi) override;
  void deselect() override;
  void reset_line(bool is_high) override { receiver_.reset_line(is_high); }
  /// A fault of this kind is among the settings'.
  bool has(Fault_kind kind) const;

 private:
  /// A fault that waits for its frame.
  struct Armed {
    Fault fault;
    std::uint32_t matches = 0;  ///< frames with the fault's opcode so far
  };
  /// A fault at work.
  struct Strike {
    Fault fault;
    std::uint32_t random = 0;
    std::uint32_t reads_left = 0;
    bool lasts = false;  ///< up to the next command; otherwise for this read
  };

  static std::uint8_t spoil(Strike& strike, std::size_t at, std::uint8_t byte);
  void begin(std::uint8_t opcode);
  void strike(const Fault& fault, bool is_read);

  Receiver& receiver_;
  std::vector<Armed> armed_;
  std::vector<Strike> strikes_;
  std::uint32_t frames_ = 0;
  std::size_t position_ = 0;
  bool is_read_ = false;
};

}  // namespace sim
