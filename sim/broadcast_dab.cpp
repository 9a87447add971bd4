// SPDX-License-Identifier: GPL-3.0-or-later
//
// The DAB multiplexes on the air. Service ids carry the country id of the
// country that transmits (4 with ECC 0xE1, D and A with 0xE0, F with 0xE1, 5
// with 0xE0), as a receiver near a border would see it.
#include <utility>

#include "sim/broadcast.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t mpeg_audio = 0;
constexpr std::uint8_t object_transfer = 60;
constexpr std::uint8_t transparent_channel = 5;
constexpr std::uint8_t internet_protocol = 59;
constexpr std::uint8_t ucs2 = 6;
constexpr std::uint8_t utf8 = 15;

/// As long as a text can be: eight segments of 16 characters.
constexpr const char* longest_text =
    "Traffic at ten past the hour: slow between Lindwil and Altmoor, the ferry to Brunnau waits, "
    "and the pass is closed until Monday.";

/// UCS-2 as it is transmitted, the high byte first.
std::string big_endian(std::u16string_view text) {
  std::string bytes;
  for (const char16_t character : text) {
    bytes += static_cast<char>(character >> 8);
    bytes += static_cast<char>(character & 0xFF);
  }
  return bytes;
}

/// A DAB+ service with one stream; its label is also what it transmits when it has no texts.
Service audio(std::uint32_t id, std::string label, std::uint8_t program_type,
              std::uint16_t sub_channel, std::vector<Text> texts = {}) {
  if (texts.empty()) {
    texts.push_back({label});
  }
  return {.id = id,
          .label = std::move(label),
          .program_type = program_type,
          .components = {{.id = sub_channel}},
          .texts = std::move(texts)};
}

Service data(std::uint32_t id, std::string label, Component component) {
  return {.id = id, .is_data = true, .label = std::move(label), .components = {component}};
}

Service with(Service service, const std::vector<Component>& more) {
  service.components.insert(service.components.end(), more.begin(), more.end());
  return service;
}

Component second_audio(std::uint16_t sub_channel) {
  return {.id = sub_channel, .is_primary = false, .has_application_info = false};
}

Component slides(std::uint16_t component_id) {
  return {.transport = Transport::packet,
          .id = component_id,
          .type = object_transfer,
          .is_primary = false,
          .uses_data_groups = true};
}

Component stream_data(std::uint16_t sub_channel, std::uint8_t type) {
  return {.transport = Transport::stream_data, .id = sub_channel, .type = type};
}

Component fidc(std::uint16_t fidc_id) {
  return {.transport = Transport::fidc,
          .id = fidc_id,
          .type = 1,
          .is_primary = false,
          .has_application_info = false};
}

std::vector<Service> home_services() {
  Service pay = audio(0x43BC, "Premiere Ton", 15, 26);
  pay.ca_id = 1;
  pay.components[0].is_scrambled = true;
  Service local = audio(0x43BA, "Lindwil lokal", 9, 22);
  local.is_local = true;
  Service linked = audio(
      0x43B6, "Radio Felsental1", 1, 13,
      {{.characters = "Felsental 1: die Höhepunkte des Tages · Gäste im Gespräch", .charset = utf8},
       {.characters = big_endian(u"Nächste Stunde: Łódź und Πάτρα"), .charset = ucs2}});
  linked.is_linked = true;
  Service mpeg = audio(0x43B9, "Volksmusik", 26, 20);
  mpeg.components[0].type = mpeg_audio;
  return {
      with(audio(0x43B5, "Seegrund Pop", 10, 12,
                 {{"Seegrund Pop"},
                  {"The Paper Lanterns - Northbound", "Northbound", "The Paper Lanterns"},
                  {"Als N\x91"
                   "chstes: K\x99hle N\x91"
                   "chte"},
                  {"K\x99hle N\x91"
                   "chte (Mira Holt)",
                   "K\x99hle N\x91"
                   "chte",
                   "Mira Holt"},
                  {longest_text},
                  {.characters = "", .lasts = 10s}}),
           {slides(0x0321)}),
      linked,
      with(audio(0x43B7, "Felsental Zwei", 14, 14, {{"String quartet in G minor (Lindwil 1998)"}}),
           {second_audio(15), slides(0x0322), fidc(3)}),
      audio(0x43B8, "The \"Loud\" Hour", 11, 16, {{"Request line open: 555 0193"}}),
      mpeg,
      local,
      audio(0x43BB, "Kultur Gruental", 7, 24),
      pay,
      data(0xE1400101, "Seegrund Karte",
           {.transport = Transport::packet,
            .id = 0x0410,
            .type = object_transfer,
            .uses_data_groups = true}),
      with(data(0xE1400102, "Verkehr TPEG", stream_data(40, transparent_channel)), {fidc(9)}),
  };
}

std::vector<Service> border_services() {
  std::vector<Service> services;
  for (std::uint16_t i = 0; i < 18; ++i) {
    const std::string number = std::to_string(i + 1);
    services.push_back(audio(0xD210U + i, "Hochried " + number, static_cast<std::uint8_t>(i), i,
                             {{"Hochried " + number + " - rund um den Hochried"}}));
  }
  services.push_back(data(0xE0D00210, "Hochried EPG", stream_data(50, object_transfer)));
  services.push_back(data(0xE0D00211, "Hochried IP",
                          {.transport = Transport::packet, .id = 1, .type = internet_protocol}));
  return services;
}

std::vector<Service> city_services() {
  return {
      audio(0x4101, "Altmoor FM", 10, 1),
      audio(0x4102, "Altmoor Klassik", 14, 2),
      with(audio(0x4103, "Altmoor Sport", 4, 3), {second_audio(4), second_audio(5)}),
      audio(0x4104, "Bluenote", 24, 6),
      audio(0x4105, "Campus", 5, 7),
      data(0xE1400110, "Altmoor Wetter",
           {.transport = Transport::packet, .id = 0x0FFF, .type = object_transfer}),
  };
}

std::vector<Service> mountain_services() {
  Service umlaut = audio(0x4A02, "H\xC3\xB6henweg", 28, 31);
  umlaut.charset = utf8;
  umlaut.texts[0].charset = utf8;
  return {
      audio(0x4A01, "Tannhorn", 27, 30),      umlaut,
      audio(0x4A03, "Tannhorn Kids", 18, 32), audio(0x4A04, "Bergfunk", 16, 33),
      audio(0x4A05, "Alpine Alarm", 31, 34),  audio(0x4A06, "Tannhorn Talk", 21, 35),
  };
}

std::vector<Service> french_services() {
  return {
      audio(0xF201, "Velrose", 15, 1),
      audio(0xF202, "Velrose Info", 1, 2),
      audio(0xF203, "Pontclair", 10, 3),
      audio(0xF204, "Pontclair Jazz", 24, 4),
      with(audio(0xF205, "Vallee Culture", 7, 5), {slides(0x0200)}),
      data(0xE1F00020, "Velrose Trafic", stream_data(6, transparent_channel)),
      audio(0xF207, "Radio du Lac", 12, 7),
  };
}

std::vector<Service> italian_services() {
  return {
      audio(0x5301, "Corvento Uno", 1, 10),
      audio(0x5302, "Corvento Due", 10, 11),
      audio(0x5303, "Corvento Tre", 14, 12),
      audio(0x5304, "Morvalle", 9, 13),
      data(0xE0500030, "Corvento Dati",
           {.transport = Transport::packet, .id = 0x0123, .type = transparent_channel}),
  };
}

std::vector<Service> austrian_services() {
  return {
      audio(0xA401, "Marbrunn Eins", 1, 0),     audio(0xA402, "Marbrunn Zwei", 12, 8),
      audio(0xA403, "Marbrunn Jung", 10, 16),   audio(0xA404, "Oldie Kanal", 27, 24),
      audio(0xA405, "Land und Leute", 28, 32),  audio(0xA406, "Marbrunn Rock", 11, 40),
      audio(0xA407, "Kirche und Welt", 20, 48), audio(0xA408, "Marbrunn Jazz", 24, 63),
  };
}

std::vector<Service> lake_services() {
  return {
      audio(0x4501, "Ufer", 12, 2),
      audio(0x4502, "Ufer Nacht", 13, 4),
      audio(0x4503, "Brunnau", 9, 6),
      audio(0x4504, "Brunnau Dialog", 21, 8),
      audio(0x4505, "Lakeside English", 3, 10),
  };
}

std::vector<Service> first_services() {
  return {audio(0x4701, "Morgenrot", 9, 1), audio(0x4702, "Abendstern", 15, 2)};
}

std::vector<Service> late_services() {
  return {
      audio(0x4601, "Passwind", 11, 9),
      audio(0x4602, "Passwind Gold", 27, 10),
      audio(0x4603, "Fernblick", 22, 11),
      audio(0x4604, "Fernblick Sport", 4, 12),
      data(0xE1400140, "Passwind Text", stream_data(13, object_transfer)),
  };
}

}  // namespace

std::vector<Ensemble> default_ensembles() {
  // clang-format off
  return {
      // 5A: the first block of the list has index 0.
      {.khz = 174928, .name = "Morgenland", .rssi_dbuv = 46, .snr_db = 14, .cnr_db = 18,
       .fic_quality = 97, .antenna_cap = 37, .cu_level = 108, .fast_detect = 12,
       .acquired = 430ms, .list = 680ms, .time = 720ms, .list_version = 4,
       .services = first_services()},
      {.khz = 178352, .name = "Hochried", .rssi_dbuv = 44, .snr_db = 13, .cnr_db = 17,
       .fic_quality = 96, .fib_errors = 2, .fft_offset = -1, .antenna_cap = 36, .cu_level = 412,
       .fast_detect = 12, .acquired = 450ms, .list = 780ms, .time = 820ms, .frequency_info = 3s,
       .list_version = 7, .services = border_services()},
      // A carrier in 7A: a signal with nothing of DAB in it.
      {.khz = 188928, .name = "Carrier", .rssi_dbuv = 39, .snr_db = 0, .fft_offset = 7,
       .antenna_cap = 31, .fast_detect = 1},
      {.khz = 194064, .name = "Altmoor City", .rssi_dbuv = 57, .snr_db = 18, .cnr_db = 23,
       .fic_quality = 100, .antenna_cap = 29, .cu_level = 216, .fast_detect = 15,
       .acquired = 400ms, .list = 650ms, .time = 700ms, .frequency_info = 2s, .announcement = 5s,
       .list_version = 1, .services = city_services()},
      // Weak: acquired late, its list 6 s after that.
      {.khz = 197648, .name = "Passwind", .rssi_dbuv = 27, .snr_db = 6, .cnr_db = 9,
       .fic_quality = 58, .fib_errors = 317, .fft_offset = -4, .antenna_cap = 28, .cu_level = 180,
       .fast_detect = 6, .acquired = 1250ms, .list = 7250ms, .time = 12s, .list_version = 12,
       .services = late_services()},
      {.khz = 208064, .name = "Velrose", .rssi_dbuv = 35, .snr_db = 9, .cnr_db = 13,
       .fic_quality = 83, .fib_errors = 41, .fft_offset = 2, .antenna_cap = 24, .cu_level = 264,
       .fast_detect = 9, .acquired = 600ms, .list = 900ms, .time = 950ms, .list_version = 3,
       .services = french_services()},
      {.khz = 209936, .name = "Corvento", .rssi_dbuv = 31, .snr_db = 8, .cnr_db = 12,
       .fic_quality = 74, .fib_errors = 88, .fft_offset = 3, .antenna_cap = 23, .cu_level = 190,
       .fast_detect = 8, .acquired = 650ms, .list = 950ms, .time = 990ms, .list_version = 260,
       .services = italian_services()},
      // 11C: a multiplex from behind the mountains whose FIC never comes through.
      {.khz = 220352, .name = "Far away", .rssi_dbuv = 22, .snr_db = 3, .cnr_db = 5,
       .fic_quality = 22, .fib_errors = 4711, .fft_offset = -6, .antenna_cap = 20,
       .fast_detect = 3},
      {.khz = 222064, .name = "Marbrunn", .rssi_dbuv = 41, .snr_db = 12, .cnr_db = 16,
       .fic_quality = 93, .fib_errors = 9, .fft_offset = 1, .antenna_cap = 19, .cu_level = 384,
       .fast_detect = 11, .acquired = 450ms, .list = 760ms, .time = 810ms, .list_version = 2,
       .services = austrian_services()},
      {.khz = 223936, .name = "Tannhorn", .rssi_dbuv = 49, .snr_db = 15, .cnr_db = 19,
       .fic_quality = 98, .fib_errors = 1, .antenna_cap = 18, .cu_level = 240, .fast_detect = 13,
       .acquired = 420ms, .list = 690ms, .time = 740ms, .frequency_info = 4s, .list_version = 5,
       .services = mountain_services()},
      {.khz = 227360, .name = "Seegrund", .rssi_dbuv = 62, .snr_db = 19, .cnr_db = 25,
       .fic_quality = 100, .fft_offset = -1, .antenna_cap = 17, .cu_level = 348,
       .fast_detect = 15, .acquired = 400ms, .list = 640ms, .time = 680ms,
       .frequency_info = 1500ms, .announcement = 8s, .list_version = 0x0104,
       .services = home_services()},
      // 12D: a small local multiplex that transmits no time.
      {.khz = 229072, .name = "Brunnau Ufer", .rssi_dbuv = 53, .snr_db = 16, .cnr_db = 21,
       .fic_quality = 99, .antenna_cap = 16, .cu_level = 210, .fast_detect = 14,
       .acquired = 410ms, .list = 700ms, .list_version = 1, .services = lake_services()},
  };
  // clang-format on
}

}  // namespace sim
