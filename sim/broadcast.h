// SPDX-License-Identifier: GPL-3.0-or-later
//
// What is on the air, as plain data: DAB multiplexes and FM stations with the figures at which the
// simulated antenna receives them. The receiver reads it; tests change it. All names are invented.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// Time after a tune at which something has been received; nothing: never.
using After_tune = std::optional<std::chrono::milliseconds>;

/// How a component is carried (the transport mechanism id of the multiplex).
enum class Transport : std::uint8_t { stream_audio = 0, stream_data = 1, fidc = 2, packet = 3 };

struct Component {
  Transport transport = Transport::stream_audio;
  std::uint16_t id = 0;    ///< sub-channel 0..63, FIDC id 0..63 or service component id 0..4095
  std::uint8_t type = 63;  ///< audio or data service component type, 0..63
  bool is_primary = true;
  bool is_scrambled = false;      ///< conditional access
  bool uses_data_groups = false;  ///< packet mode only
  bool has_application_info = true;
  /// The 16-bit id word by which the chip lists and starts the component.
  std::uint16_t word() const;
};

// Content types of tags, in DL Plus and RadioText Plus alike.
inline constexpr std::uint8_t item_title = 1;
inline constexpr std::uint8_t item_artist = 4;

/// A text as a station sends it. A DAB station repeats it for as long as it lasts.
struct Text {
  std::string characters = {};  ///< in the character set; DAB: up to 128 bytes, FM: up to 64
  std::string title = {};       ///< the part of it that is tagged as the title; empty: none
  std::string artist = {};      ///< the part of it that is tagged as the artist; empty: none
  std::uint8_t charset = 0;     ///< DAB only: 0 EBU Latin, 6 UCS-2, 15 UTF-8
  std::chrono::milliseconds lasts = std::chrono::seconds(12);  ///< DAB; FM texts take 21 s
};

/// The segments of a text and the command that tags its parts, in the order in which a DAB station
/// sends them (ETSI EN 300 401, 7.4.5.2; ETSI TS 102 980); for a text without characters the
/// command that clears the display. Each is the data of one packet: a prefix of two bytes, up to 16
/// bytes, and a zero. `toggle` differs from one text to the next.
std::vector<std::vector<std::uint8_t>> dynamic_label_packets(const Text& text, bool toggle);

struct Service {
  std::uint32_t id = 0;  ///< audio: country id in bits 15..12; data: ECC 31..24, country id 23..20
  bool is_data = false;
  std::string label = {};  ///< up to 16 bytes in the multiplex's character set
  std::uint8_t program_type = 0;
  bool is_linked = false;
  bool is_local = false;
  std::uint8_t ca_id = 0;
  std::uint8_t charset = 0;
  std::vector<Component> components = {};
  std::vector<Text> texts = {};  ///< sent in turn; one without characters clears the display
};

/// A signal in a DAB block. One without services is a carrier, not an
/// ensemble; one whose FIC quality is too low is never acquired.
struct Ensemble {
  std::uint32_t khz = 0;
  std::string name = {};
  std::uint8_t rssi_dbuv = 0;
  std::uint8_t snr_db = 0;
  std::uint8_t cnr_db = 0;
  std::uint8_t fic_quality = 0;  ///< 0..100, reached within a second of the tune
  std::uint16_t fib_errors = 0;
  std::int8_t fft_offset = 0;
  std::uint16_t antenna_cap = 0;
  std::uint16_t cu_level = 0;  ///< capacity units in use, 0..470
  std::uint8_t fast_detect = 0;
  After_tune acquired = std::nullopt;
  After_tune list = std::nullopt;  ///< the service list is complete
  After_tune time = std::nullopt;  ///< date and time were transmitted
  std::uint16_t list_version = 0;
  std::vector<Service> services = {};
};

struct Fm_station {
  std::uint32_t khz = 0;
  std::uint8_t rssi_dbuv = 0;
  std::uint8_t snr_db = 0;
  std::uint8_t multipath = 0;
  std::int8_t offset = 0;  ///< as the chip reports it
  std::uint16_t antenna_cap = 0;
  std::uint8_t hd_level = 0;  ///< 0: no HD carriers
  bool has_rds = true;
  std::uint16_t pi = 0;
  std::uint8_t pty = 0;  ///< 0..31
  bool tp = false;
  bool ta = false;
  std::string ps = {};                               ///< programme service name, up to 8 characters
  std::vector<Text> texts = {};                      ///< radiotexts, sent in turn
  std::vector<std::uint32_t> alternatives_khz = {};  ///< up to 8 alternative frequencies
};

struct Air {
  bool has_antenna = true;  ///< false: nothing but noise reaches the receiver
  std::vector<Ensemble> ensembles = {};
  std::vector<Fm_station> stations = {};
};

/// What the simulated antenna receives unless a test changes it.
Air default_air();

/// The DAB and the FM half of default_air().
std::vector<Ensemble> default_ensembles();
std::vector<Fm_station> default_stations();

/// Centre frequencies in kHz of the 41 European Band III blocks 5A to 13F with
/// 10N, 11N and 12N, ascending: the list that the DAB firmware starts with.
inline constexpr std::size_t band_iii_blocks = 41;
const std::array<std::uint32_t, band_iii_blocks>& band_iii_khz();

/// Noise level on a frequency with nobody on it: small, and different from one
/// channel to the next, the same at every look.
std::uint8_t noise_dbuv(std::uint32_t khz);

}  // namespace sim
