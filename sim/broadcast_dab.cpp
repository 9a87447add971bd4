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
constexpr const char* text_of_all_segments =
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
  if (texts.empty()) texts.push_back({label});
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

// Tables from here on.
// clang-format off
Component second_audio(std::uint16_t sub_channel) {
  return {.id = sub_channel, .is_primary = false, .has_application_info = false};
}

Component packets(std::uint16_t id, std::uint8_t type, bool uses_data_groups = false) {
  return {.transport = Transport::packet, .id = id, .type = type,
          .uses_data_groups = uses_data_groups};
}

Component slides(std::uint16_t id) {
  return {.transport = Transport::packet, .id = id, .type = object_transfer, .is_primary = false,
          .uses_data_groups = true};
}

Component stream_data(std::uint16_t sub_channel, std::uint8_t type) {
  return {.transport = Transport::stream_data, .id = sub_channel, .type = type};
}

Component fidc(std::uint16_t id) {
  return {.transport = Transport::fidc, .id = id, .type = 1, .is_primary = false,
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
                  {"Als N\221chstes: K\231hle N\221chte"},
                  {"K\231hle N\221chte (Mira Holt)",
                   "K\231hle N\221chte",
                   "Mira Holt"},
                  {text_of_all_segments},
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
      data(0xE1400101, "Seegrund Karte", packets(0x0410, object_transfer, true)),
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
  services.push_back(data(0xE0D00211, "Hochried IP", packets(1, internet_protocol)));
  return services;
}

std::vector<Service> city_services() {
  return {
      audio(0x4101, "Altmoor FM", 10, 1), audio(0x4102, "Altmoor Klassik", 14, 2),
      with(audio(0x4103, "Altmoor Sport", 4, 3), {second_audio(4), second_audio(5)}),
      audio(0x4104, "Bluenote", 24, 6), audio(0x4105, "Campus", 5, 7),
      data(0xE1400110, "Altmoor Wetter", packets(0x0FFF, object_transfer)),
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
      audio(0xF201, "Velrose", 15, 1), audio(0xF202, "Velrose Info", 1, 2),
      audio(0xF203, "Pontclair", 10, 3), audio(0xF204, "Pontclair Jazz", 24, 4),
      with(audio(0xF205, "Vallee Culture", 7, 5), {slides(0x0200)}),
      data(0xE1F00020, "Velrose Trafic", stream_data(6, transparent_channel)),
      audio(0xF207, "Radio du Lac", 12, 7),
  };
}

std::vector<Service> italian_services() {
  return {
      audio(0x5301, "Corvento Uno", 1, 10), audio(0x5302, "Corvento Due", 10, 11),
      audio(0x5303, "Corvento Tre", 14, 12), audio(0x5304, "Morvalle", 9, 13),
      data(0xE0500030, "Corvento Dati", packets(0x0123, transparent_channel)),
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
      audio(0x4501, "Ufer", 12, 2), audio(0x4502, "Ufer Nacht", 13, 4),
      audio(0x4503, "Brunnau", 9, 6), audio(0x4504, "Brunnau Dialog", 21, 8),
      audio(0x4505, "Lakeside English", 3, 10),
  };
}

std::vector<Service> first_services() {
  return {audio(0x4701, "Morgenrot", 9, 1), audio(0x4702, "Abendstern", 15, 2)};
}

std::vector<Service> late_services() {
  return {
      audio(0x4601, "Passwind", 11, 9), audio(0x4602, "Passwind Gold", 27, 10),
      audio(0x4603, "Fernblick", 22, 11), audio(0x4604, "Fernblick Sport", 4, 12),
      data(0xE1400140, "Passwind Text", stream_data(13, object_transfer)),
  };
}

}  // namespace

std::vector<Ensemble> default_ensembles() {
  constexpr std::nullopt_t never = std::nullopt;
  return {
      // kHz    name           RSSI SNR CNR FIC  FIB errors, FFT offset, antenna, CU, fast detect,
      //        acquired, list, time, list version, services
      {174928, "Morgenland",    46, 14, 18,  97,    0,  0, 37, 108, 12,
               430ms, 680ms, 720ms, 4, first_services()},
      {178352, "Hochried",      44, 13, 17,  96,    2, -1, 36, 412, 12,
               450ms, 780ms, 820ms, 7, border_services()},
      // A carrier in 7A: a signal with nothing of DAB in it.
      {188928, "Carrier",       39,  0,  0,   0,    0,  7, 31,   0,  1},
      {194064, "Altmoor City",  57, 18, 23, 100,    0,  0, 29, 216, 15,
               400ms, 650ms, 700ms, 1, city_services()},
      // Weak: acquired late, its list 6 s after that.
      {197648, "Passwind",      27,  6,  9,  58,  317, -4, 28, 180,  6,
               1250ms, 7250ms, 12s, 12, late_services()},
      {208064, "Velrose",       35,  9, 13,  83,   41,  2, 24, 264,  9,
               600ms, 900ms, 950ms, 3, french_services()},
      {209936, "Corvento",      31,  8, 12,  74,   88,  3, 23, 190,  8,
               650ms, 950ms, 990ms, 260, italian_services()},
      // 11C: a multiplex from beyond the mountains whose FIC never comes through.
      {220352, "Far away",      22,  3,  5,  22, 4711, -6, 20,   0,  3},
      {222064, "Marbrunn",      41, 12, 16,  93,    9,  1, 19, 384, 11,
               450ms, 760ms, 810ms, 2, austrian_services()},
      {223936, "Tannhorn",      49, 15, 19,  98,    1,  0, 18, 240, 13,
               420ms, 690ms, 740ms, 5, mountain_services()},
      {227360, "Seegrund",      62, 19, 25, 100,    0, -1, 17, 348, 15,
               400ms, 640ms, 680ms, 0x0104, home_services()},
      // 12D: a small local multiplex that transmits no time.
      {229072, "Brunnau Ufer",  53, 16, 21,  99,    0,  0, 16, 210, 14,
               410ms, 700ms, never, 1, lake_services()},
  };
}

}  // namespace sim
