// SPDX-License-Identifier: GPL-3.0-or-later

// The service list: every field of good ones to the byte, and what is made of hostile ones.
#include "si468x/service_list.h"

#include <array>
#include <memory>
#include <tuple>

#include "scan/ensemble_list.h"
#include "support.h"

namespace {

using Service_list = Board;

/// A list, from its version on, as the chip answers: after its size, which may be a lie.
Bytes sized(const Bytes& list, std::size_t size) {
  auto bytes = frame(0x80, 0xC0, {std::uint8_t(size), std::uint8_t(size >> 8U)});
  bytes.insert(bytes.end(), list.begin(), list.end());
  return bytes;
}

const std::string head =
    "\"DigitalServiceList\": {\n\"ServiceListVersion\": 33540,\n\"NumberServices\": ";

TEST_F(Service_list, EveryFieldIsWrittenToTheByte) {
  // Version 0x8304; a data and an audio service, whose bits are each other's complement where they
  // can be; components with all four mechanisms.
  const Bytes list{4,    0x83, 2,    7,    7,    7,    0x01, 0x00, 0xD3, 0xE1, 0x55, 0xB3, 0x0F,
                   7,    'a',  '"',  'b',  '\\', 'c',  0x01, 0xE4, ' ',  ' ',  ' ',  ' ',  ' ',
                   ' ',  ' ',  ' ',  '.',  0xF9, 0x80, 0x02, 0x01, 0x21, 0xF3, 0xF1, 0x00, 0xD2,
                   0xEC, 0x0E, 0xFF, 0x21, 0xDB, 0x65, 0x87, 0xAA, 0x42, 0xF5, 7,    '"',  '"',
                   '"',  '"',  '"',  '"',  '"',  '"',  '"',  '"',  '"',  '"',  '"',  '"',  '"',
                   '"',  0xC5, 0x2A, 0x55, 0xFE, 0x7F, 0x4F, 0xAA, 0x01};
  std::string quotes;
  for (int i = 0; i < 16; ++i) quotes += "\\\"";
  const auto example =
      head +
      "2,\n\"ServiceList\": [\n"
      "{\n\"ServiceNo\": 0,\n\"ServId\": 3788701697,\n\"AudioOrDataFlag\": 1,\n"
      "\"ServRef\": 196609,\n\"CountryID\": 13,\n\"ECC\": 225,\n\"ProgramType\": 10,\n"
      "\"LinkingInfo\": 1,\n\"NumberComponents\": 3,\n\"CAId\": 3,\n\"local\": 1,\n"
      "\"SICharset\": 15,\n\"Label\": \"a\\\"b\\c\x01\xE4        .\",\n\"ComponentList\": [\n"
      "{\n\"ComponentNo\": 0,\n\"comp_ID\": 33017,\n\"TMID\": 2,\n\"FIDCId\": 57,\n"
      "\"CA_flag\": 0,\n\"ps\": 1,\n\"ASCTyDSCTy\": 0,\n\"muA_info_valid\": 1\n},{\n"
      "\"ComponentNo\": 1,\n\"comp_ID\": 62241,\n\"TMID\": 3,\n\"SCId\": 801,\n\"DGFlag\": 1,\n"
      "\"CA_flag\": 1,\n\"ps\": 0,\n\"ASCTyDSCTy\": 60,\n\"muA_info_valid\": 0\n},{\n"
      "\"ComponentNo\": 2,\n\"comp_ID\": 60626,\n\"TMID\": 3,\n\"SCId\": 3282,\n\"DGFlag\": 0,\n"
      "\"CA_flag\": 0,\n\"ps\": 1,\n\"ASCTyDSCTy\": 3,\n\"muA_info_valid\": 1\n}]\n},"
      "{\n\"ServiceNo\": 1,\n\"ServId\": 2271599393,\n\"AudioOrDataFlag\": 0,\n"
      "\"ServRef\": 2849,\n\"CountryID\": 13,\n\"ProgramType\": 21,\n"
      "\"LinkingInfo\": 0,\n\"NumberComponents\": 2,\n\"CAId\": 4,\n\"local\": 0,\n"
      "\"SICharset\": 5,\n\"Label\": \"" +
      quotes +
      "\",\n\"ComponentList\": [\n"
      "{\n\"ComponentNo\": 0,\n\"comp_ID\": 10949,\n\"TMID\": 0,\n\"SubChId\": 5,\n"
      "\"CA_flag\": 1,\n\"ps\": 0,\n\"ASCTyDSCTy\": 21,\n\"muA_info_valid\": 0\n},{\n"
      "\"ComponentNo\": 1,\n\"comp_ID\": 20351,\n\"TMID\": 1,\n\"SubChId\": 63,\n"
      "\"CA_flag\": 0,\n\"ps\": 1,\n\"ASCTyDSCTy\": 42,\n\"muA_info_valid\": 1\n}]\n}]\n}";
  // The second reply tells of another size than the first.
  start().answer(ready, 2).answer(sized({}, list.size())).answer(ready, 2).answer(sized(list, 9));
  EXPECT_EQ(printed(print_digital_service_list), example);
  EXPECT_EQ(commands(), (Lines{"80 00", "80 00"}));
  EXPECT_EQ(Si468x_ErrorCode, 0U);

  // The scan keeps a copy that needs nothing of the array.
  Bytes array(service_list_reply_bytes);
  Si468x_digital_service_list record;
  Si468x_DAB_digrad_status status;
  Si468x_time time;
  Ensemble_list ensembles;
  start().by_default(sized(list, list.size()));
  EXPECT_EQ(record.get_new_list(array.data()), 0);
  EXPECT_EQ(record.ServiceEntriesSize, list.size() - 6);
  EXPECT_EQ(ensembles.add_ensemble(47, record, status, time), 0);
  Bytes too_long(5000);
  record.ServiceEntries = too_long.data(), record.ServiceEntriesSize = 5000;
  EXPECT_EQ(ensembles.add_ensemble(0, record, status, time), 0);
  EXPECT_EQ(ensembles.service_list[0].ServiceEntriesSize, service_list_reply_bytes);
  record.clean();
  EXPECT_EQ(record.ServiceListVersion + record.NumberServices + record.ServiceEntriesSize, 0);
  std::fill(array.begin(), array.end(), std::uint8_t{0});
  std::stringstream out;
  EXPECT_EQ(ensembles.service_list[47].json_print_data(out), 0);
  EXPECT_EQ(out.str(), example);
  EXPECT_EQ(ensembles.add_ensemble(48, record, status, time), -6);
}

/// A service entry that claims `claimed` components and has `there`.
Bytes entry(char label, std::uint8_t claimed, std::size_t there) {
  Bytes bytes(8, 0);
  bytes[5] = claimed;
  bytes.resize(24, std::uint8_t(label));
  bytes.resize(24 + 4 * there);
  return bytes;
}

/// What is written for service `number` with such a label, and for `shown` of its components.
std::string service(std::size_t number, char label, unsigned claimed, unsigned shown) {
  auto text = "{\n\"ServiceNo\": " + std::to_string(number) +
              ",\n\"ServId\": 0,\n\"AudioOrDataFlag\": 0,\n\"ServRef\": 0,\n\"CountryID\": 0,\n"
              "\"ProgramType\": 0,\n\"LinkingInfo\": 0,\n\"NumberComponents\": " +
              std::to_string(claimed) +
              ",\n\"CAId\": 0,\n\"local\": 0,\n\"SICharset\": 0,\n\"Label\": \"" +
              std::string(16, label) + "\",\n\"ComponentList\": [\n";
  for (unsigned i = 0; i < shown; ++i) {
    text += (i > 0 ? ",{\n\"ComponentNo\": " : "{\n\"ComponentNo\": ") + std::to_string(i) +
            ",\n\"comp_ID\": 0,\n\"TMID\": 0,\n\"SubChId\": 0,\n\"CA_flag\": 0,\n\"ps\": 0,\n"
            "\"ASCTyDSCTy\": 0,\n\"muA_info_valid\": 0\n}";
  }
  return text + "]\n}";
}

TEST_F(Service_list, HostileListIsReadOnlyAsFarAsItGoes) {
  struct Shown {
    std::uint32_t code;  ///< of get_service
    char label;          ///< what is written then: of this service, or of the one before
    unsigned claimed = 0, components = 0;
  };
  struct Hostile {
    const char* what;
    std::vector<Shown> services = {};
    std::vector<Bytes> entries = {};
    std::size_t cut = 0;  ///< bytes left out at the end
  };
  const std::vector<Hostile> lists{
      {.what = "no services"},
      {.what = "no entry at all", .services = {{327, ' '}, {127, ' '}, {127, ' '}}},
      {.what = "first entry a byte short",
       .services = {{327, ' '}, {127, ' '}},
       .entries = {entry('A', 0, 0)},
       .cut = 1},
      {.what = "all there",
       .services = {{0, 'A'}, {0, 'B', 15, 15}, {0, 'C', 1, 1}},
       .entries = {entry('A', 0, 0), entry('B', 15, 15), entry('C', 1, 1)}},
      {.what = "more services than entries",
       .services = {{0, 'A', 1, 1}, {327, 'A', 1, 1}, {127, 'A', 1, 1}},
       .entries = {entry('A', 1, 1)}},
      {.what = "second entry a byte short",
       .services = {{0, 'A', 1, 1}, {327, 'A', 1, 1}, {127, 'A', 1, 1}},
       .entries = {entry('A', 1, 1), entry('B', 0, 0)},
       .cut = 1},
      {.what = "last component a byte short",
       .services = {{0, 'A'}, {427, 'B', 2, 0}, {227, 'B', 2, 0}},
       .entries = {entry('A', 0, 0), entry('B', 2, 2)},
       .cut = 1},
      {.what = "components of the first run past the end",
       .services = {{427, 'A', 15, 0}, {227, 'A', 15, 0}},
       .entries = {entry('A', 15, 14)}}};
  for (const auto& row : lists) {
    SCOPED_TRACE(row.what);
    Bytes list{4, 0x83, std::uint8_t(row.services.size()), 0, 0, 0};
    for (const auto& bytes : row.entries) list.insert(list.end(), bytes.begin(), bytes.end());
    list.resize(list.size() - row.cut);
    // In an array of its own size, so that the sanitizer sees a byte read beyond the end.
    Bytes area(list.begin() + 6, list.end());
    Si468x_digital_service_list record{33540, list[2], std::uint16_t(area.size()), area.data()};
    auto text = head + std::to_string(list[2]) + ",\n\"ServiceList\": [\n";
    Si468x_service_data data;
    Si468x_DAB_component component;
    for (std::size_t i = 0; i < row.services.size(); ++i) {
      const auto& [code, label, claimed, components] = row.services[i];
      text += (i > 0 ? "," : "") + service(i, label, claimed, components);
      Si468x_ErrorCode = 0;
      EXPECT_EQ(with_code(data.get_service(&record, std::uint8_t(i))),
                std::pair(code == 0 ? 0 : -4, code));
      EXPECT_EQ(component.get_component(&data, std::uint8_t(claimed - 1)), components > 0 ? 0 : -6);
    }
    EXPECT_EQ(with_code(data.get_service(&record, list[2])), std::pair(-6, 27U));
    EXPECT_EQ(with_code(component.get_component(&data, data.NumberComponents)), std::pair(-6, 28U));
    std::stringstream out;
    EXPECT_EQ(record.json_print_data(out), 0);
    EXPECT_EQ(out.str(), text + "]\n}");
  }
  Si468x_digital_service_list empty{33540, 255, 99, nullptr};
  Si468x_service_data data;
  EXPECT_EQ(with_code(data.get_service(&empty, 254)), std::pair(-4, 127U));
}

TEST_F(Service_list, SizeIsBoundedBeforeTheListIsRead) {
  std::array<unsigned char, service_list_reply_bytes> reply_array{};
  Si468x_digital_service_list list{0x1234, 9, 77, reply_array.data()};
  for (const auto& [size, code] :
       {std::pair(0, 326U), {1, 326}, {5, 326}, {4090, 126}, {65535, 126}}) {
    play(sized(Bytes(99, 1), std::size_t(size)),
         [&] { return list.get_new_list(reply_array.data()); },
         {{.after = 1, .times = 50, .then = busy, .result = -3, .code = 26, .wait_us = 1'227'500},
          {.result = -4, .code = code}});
    EXPECT_EQ(happened().back(), "read 7");
  }
  EXPECT_EQ(std::tuple(list.ServiceListVersion, list.NumberServices), std::tuple(0x1234, 9));
  EXPECT_EQ(std::tuple(list.ServiceEntriesSize, list.ServiceEntries),
            std::tuple(77, reply_array.data()));
  const std::string empty =
      "\"DigitalServiceList\": {\n\"ServiceListVersion\": 0,\n\"NumberServices\": 0,\n"
      "\"ServiceList\": [\n]\n}";
  play(sized(Bytes(4096, 0), 4089), print_digital_service_list,
       {{.what = "longest", .text = empty}});
  EXPECT_EQ(happened().back(), "read 4096");
  play(sized({0, 0, 255}, 6), [&] { return list.get_new_list(reply_array.data()); });
  EXPECT_EQ(list.NumberServices, 255);
  play(sized(Bytes(99, 1), 99), print_digital_service_list,
       {{.what = "size with an error", .after = 2, .then = arbiter, .code = 26, .text = empty},
        {.what = "too long", .after = 2, .then = reply({0xFA, 0x0F}), .code = 126, .text = empty},
        {.after = 4, .times = 50, .then = busy, .code = 226, .wait_us = 1'227'500, .text = empty},
        {.after = 5, .then = frame(0x80, 0xC1, Bytes(99, 1)), .code = 226, .text = empty}});
}

}  // namespace
