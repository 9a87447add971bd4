// SPDX-License-Identifier: GPL-3.0-or-later
//
// Stands between the bus and the receiver, counts frames, and carries out the
// faults of the settings: it spoils commands on their way in and bytes on their
// way out. Without faults it passes everything through.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

#include "sim/faults.h"
#include "sim/receiver.h"
#include "sim/spi_device.h"

namespace sim {

/// A fault at work.
struct Strike {
  Fault_kind kind = Fault_kind::no_cts;
  std::uint32_t number = 0;
  std::uint32_t random = 0;
  std::uint32_t reads_left = std::numeric_limits<std::uint32_t>::max();
};

/// One kind of fault: its name, and what it makes of byte `at` on MISO.
struct Fault_row {
  std::string_view name;
  Fault_kind kind;
  std::uint8_t (*apply)(Strike& strike, std::size_t at, std::uint8_t byte);
};
[[nodiscard]] const Fault_row& fault_row(Fault_kind kind);

class Fault_injector final : public Spi_device {
 public:
  Fault_injector(Receiver& receiver, const std::vector<Fault>& faults);

  void select() override;
  std::uint8_t exchange(std::uint8_t mosi) override;
  void deselect() override;
  void reset_line(bool high) override { receiver_.reset_line(high); }

  /// True when a fault of this kind (no_board, no_spi) makes call number `call` fail.
  [[nodiscard]] bool fails_call(Fault_kind kind, std::uint32_t call) const;

 private:
  struct Armed {
    Fault fault;
    std::uint32_t matches = 0;  ///< frames with the fault's opcode so far
  };

  void begin(std::uint8_t opcode);
  void strike(const Fault& fault, bool is_read);

  Receiver& receiver_;
  std::vector<Armed> armed_;
  std::vector<Strike> carried_;     ///< up to the next command
  std::vector<Strike> this_frame_;  ///< struck reads
  std::uint32_t frames_ = 0;
  std::size_t position_ = 0;
  std::uint8_t opcode_ = 0;
};

}  // namespace sim
