// SPDX-License-Identifier: GPL-3.0-or-later
//
// The service list, good and hostile: what is written for any bytes that the chip may send, against
// a second reading of the same bytes that stands here by itself.
#include "si468x/service_list.h"

#include <array>
#include <memory>
#include <nlohmann/json.hpp>
#include <tuple>

#include "scan/ensemble_list.h"
#include "support.h"

namespace {

using Service_list = Board;

/// A list, from its version on, as the chip answers: behind its size, which may be a lie.
Bytes sized(const Bytes& list, std::size_t size) {
  auto bytes = frame(0x80, 0xC0, {std::uint8_t(size), std::uint8_t(size >> 8U)});
  bytes.insert(bytes.end(), list.begin(), list.end());
  return bytes;
}

/// What is to be written for such a list.
struct Model {
  explicit Model(const Bytes& list) : area(list.begin() + 6, list.end()) {
    add({{"ServiceListVersion", list[0] + 256U * list[1]}, {"NumberServices", list[2]}});
    text += "\"ServiceList\": [\n";
    for (unsigned i = 0; i < list[2]; ++i) {
      if (const auto error = find(i); error != 0) code = error;
      text += i > 0 ? ",{\n" : "{\n";
      add_service(i);
    }
    text += "]\n}";
  }
  [[nodiscard]] std::size_t end(std::size_t at) const {
    return at + 24 + 4UL * (area[at + 5] % 16U);
  }
  /// Take service `index`; what was taken before stays if there is none. 0, or the error code.
  unsigned find(unsigned index) {
    std::size_t at = 0;
    for (unsigned i = 0; i < index; ++i, at = end(at)) {
      if (at + 23 >= area.size()) return 127;
      if (end(at) > area.size()) return 227;
    }
    if (at + 23 >= area.size()) return 327;
    std::copy_n(&area[at], 24, head.begin());
    components.clear();
    if (end(at) > area.size()) return 427;
    components.assign(area.data() + at + 24, area.data() + end(at));
    return 0;
  }
  void add(const std::vector<std::pair<const char*, unsigned>>& members) {
    for (const auto& [key, value] : members) {
      text.append("\"").append(key).append("\": ").append(std::to_string(value)).append(",\n");
    }
  }
  void add_service(unsigned number) {
    const unsigned low = head[0] + 256U * head[1], high = head[2] + 256U * head[3];
    const bool is_data = head[4] % 2 == 1;
    add({{"ServiceNo", number}, {"ServId", low + 65536 * high}, {"AudioOrDataFlag", is_data}});
    add({{"ServRef", is_data ? low + 65536 * (high % 16) : low % 4096}});
    add({{"CountryID", is_data ? high / 16 % 16 : low / 4096}});
    if (is_data) add({{"ECC", high / 256}});
    add({{"ProgramType", head[4] / 2U % 32}, {"LinkingInfo", head[4] / 64U % 2}});
    add({{"NumberComponents", head[5] % 16U}, {"CAId", head[5] / 16U % 8}});
    add({{"local", head[5] / 128U}, {"SICharset", head[6] % 16U}});
    text += R"("Label": ")";
    for (std::size_t i = 8; i < 24; ++i) {
      if (head[i] == '"') text += '\\';
      text += static_cast<char>(head[i]);
    }
    text += "\",\n\"ComponentList\": [\n";
    for (unsigned at = 0; at < components.size(); at += 4) {
      const auto* const entry = &components[at];
      const unsigned id = entry[0] + 256U * entry[1], mechanism = id / 16384;
      text += at > 0 ? ",{\n" : "{\n";
      add({{"ComponentNo", at / 4}, {"comp_ID", id}, {"TMID", mechanism}});
      if (mechanism < 2) add({{"SubChId", id % 64}});
      if (mechanism == 2) add({{"FIDCId", id % 64}});
      if (mechanism == 3) add({{"SCId", id % 4096}, {"DGFlag", id / 4096 % 2}});
      add({{"CA_flag", entry[2] % 2U}, {"ps", entry[2] / 2U % 2}, {"ASCTyDSCTy", entry[2] / 4U}});
      add({{"muA_info_valid", entry[3] % 2U}});
      text.replace(text.size() - 2, 2, "\n}");  // no comma behind the last member
    }
    text += "]\n}";
  }
  std::string text = "\"DigitalServiceList\": {\n";
  unsigned code = 0;  ///< of the last failure
  // The first service that is not found shows zeros and a blank label.
  Bytes area, components, head{0,   0,   0,   0,   0,   0,   0,   0,   ' ', ' ', ' ', ' ',
                               ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
};

TEST_F(Service_list, ExampleIsWrittenToTheByte) {
  // Version 3; data service 0xE1D30001, linked, local; components with TMID 2 and 3.
  const Bytes list{3,   0,   1,   7,   7,    7,    0x01, 0x00, 0xD3, 0xE1, 0x55, 0xB2, 0x0F,
                   7,   'a', '"', 'b', '\\', 'c',  0x01, 0xE4, ' ',  ' ',  ' ',  ' ',  ' ',
                   ' ', ' ', ' ', '.', 0x89, 0x80, 0x02, 0x01, 0x21, 0xF3, 0xF1, 0x00};
  const std::string example =
      "\"DigitalServiceList\": {\n\"ServiceListVersion\": 3,\n\"NumberServices\": 1,\n"
      "\"ServiceList\": [\n{\n\"ServiceNo\": 0,\n\"ServId\": 3788701697,\n\"AudioOrDataFlag\": 1,\n"
      "\"ServRef\": 196609,\n\"CountryID\": 13,\n\"ECC\": 225,\n\"ProgramType\": 10,\n"
      "\"LinkingInfo\": 1,\n\"NumberComponents\": 2,\n\"CAId\": 3,\n\"local\": 1,\n"
      "\"SICharset\": 15,\n\"Label\": \"a\\\"b\\c\x01\xE4        .\",\n\"ComponentList\": [\n"
      "{\n\"ComponentNo\": 0,\n\"comp_ID\": 32905,\n\"TMID\": 2,\n\"FIDCId\": 9,\n"
      "\"CA_flag\": 0,\n\"ps\": 1,\n\"ASCTyDSCTy\": 0,\n\"muA_info_valid\": 1\n},{\n"
      "\"ComponentNo\": 1,\n\"comp_ID\": 62241,\n\"TMID\": 3,\n\"SCId\": 801,\n\"DGFlag\": 1,\n"
      "\"CA_flag\": 1,\n\"ps\": 0,\n\"ASCTyDSCTy\": 60,\n\"muA_info_valid\": 0\n}]\n}]\n}";
  play(sized(list, list.size()), print_digital_service_list, {{"", 0, 0, {}, 0, 0, 0, example}});
  EXPECT_EQ(commands(), (Lines{"80 00", "80 00"}));
}

TEST_F(Service_list, AnyBytesAreReadAsTheModelReadsThem) {
  const auto ensembles = std::make_unique<Ensemble_list>();
  std::uint32_t state = 468;
  const auto random = [&state] { return (state = state * 1664525U + 1013904223U) >> 8U; };
  const auto byte = [&random] { return std::uint8_t(random()); };
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    // Audio and data, 0 to 15 components, labels of letters, blanks and quotes.
    Bytes list{byte(), byte(), std::uint8_t(seed % 32 == 31 ? 255 : random() % 24), 0, 0, 0};
    Lines labels;
    while (labels.size() < list[2]) {
      Bytes entry(24 + 4UL * (random() % 4 == 0 ? random() % 16 : random() % 3));
      if (list.size() + entry.size() > 4089) break;  // fewer than it promises
      std::generate(entry.begin(), entry.end(), byte);
      entry[5] = std::uint8_t((entry[5] & 0xF0U) | (entry.size() - 24) / 4);
      for (std::size_t i = 8; i < 24; ++i) entry[i] = std::uint8_t("A \"b\" "[random() % 6]);
      labels.emplace_back(entry.begin() + 8, entry.begin() + 24);
      list.insert(list.end(), entry.begin(), entry.end());
    }
    const auto document = nlohmann::json::parse('{' + Model(list).text + '}');
    const auto& services = document["DigitalServiceList"]["ServiceList"];
    for (std::size_t i = 0; i < labels.size(); ++i) EXPECT_EQ(services.at(i)["Label"], labels[i]);
    // Cut after every byte, then with a few wrong ones, with more services than there are, whole.
    if (seed < 150) list.resize(std::min<std::size_t>(list.size(), 6 + seed));
    for (auto i = seed; i > 150 && i < 250; i += 10) list[random() % list.size()] = byte();
    if (seed % 32 == 31 && seed > 150) list.resize(4089);
    if (seed % 3 == 1) list[2] = std::uint8_t(list[2] + random() % 4);
    Model model(list);
    const auto whole = sized(list, list.size());
    // The second reply tells of another size than the first.
    start().answer(ready, 2).answer(whole).answer(ready, 2).answer(sized(list, random()));
    EXPECT_EQ(printed(print_digital_service_list), model.text);
    EXPECT_EQ(commands(), (Lines{"80 00", "80 00"}));
    EXPECT_EQ(Si468x_ErrorCode, model.code);

    start().by_default(whole);
    auto array = std::make_unique<unsigned char[]>(service_list_reply_bytes);
    Si468x_digital_service_list record;
    EXPECT_EQ(record.get_new_list(array.get()), 0);
    for (unsigned i = 0; i < 256 && i < list[2] + 2U; ++i) {
      Si468x_service_data service;
      Si468x_DAB_component component;
      const auto code = i < list[2] ? model.find(i) : 27;
      const int refusal = code == 27 ? -6 : -4;
      Si468x_ErrorCode = 0;
      EXPECT_EQ(with_code(service.get_service(&record, std::uint8_t(i))),
                std::pair(code == 0 ? 0 : refusal, code));
      const bool is_there = code == 0 && i % 16 < service.NumberComponents;
      EXPECT_EQ(with_code(component.get_component(&service, std::uint8_t(i % 16))),
                is_there ? std::pair(0, 0U) : std::pair(-6, 28U));
    }
    // The scan keeps a copy that needs nothing of the array.
    Si468x_DAB_digrad_status status;
    Si468x_time time;
    const auto slot = static_cast<unsigned short>(seed % Ensemble_list::slots);
    EXPECT_EQ(ensembles->add_ensemble(slot, record, status, time), 0);
    array.reset();
    std::stringstream out;
    EXPECT_EQ(ensembles->service_list[slot].json_print_data(out), 0);
    EXPECT_EQ(out.str(), model.text);
  }
}

TEST_F(Service_list, SizeIsBoundedBeforeTheListIsRead) {
  std::array<unsigned char, service_list_reply_bytes> reply_array{};
  Si468x_digital_service_list list{0x1234, 9, 77, reply_array.data()};
  for (const auto& [size, code] :
       {std::pair(0, 326U), {1, 326}, {5, 326}, {4090, 126}, {65535, 126}}) {
    play(sized(Bytes(99, 1), std::size_t(size)),
         [&] { return list.get_new_list(reply_array.data()); },
         {{"never ready", 1, 50, busy, -3, 26, 1'227'500}, {"", 0, 0, {}, -4, code}});
    EXPECT_EQ(happened().back(), "read 7");
  }
  EXPECT_EQ(std::tuple(list.ServiceListVersion, list.NumberServices), std::tuple(0x1234, 9));
  EXPECT_EQ(std::tuple(list.ServiceEntriesSize, list.ServiceEntries),
            std::tuple(77, reply_array.data()));
  const auto empty = Model(Bytes(6)).text;
  play(sized(Bytes(99, 1), 99), print_digital_service_list,
       {{"size with an error", 2, 1, arbiter, 0, 26, 0, empty},
        {"too long", 2, 1, reply({0xFA, 0x0F}), 0, 126, 0, empty},
        {"list never ready", 4, 50, busy, 0, 226, 1'227'500, empty},
        {"list with an error", 5, 1, frame(0x80, 0xC1, Bytes(99, 1)), 0, 226, 0, empty}});
}

}  // namespace
