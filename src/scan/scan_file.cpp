// SPDX-License-Identifier: GPL-3.0-or-later
//
// The end of a scan: where the antenna is, and the document with everything that was found. The
// records write their own members; the frame around them is written here.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>

#include "scan/ensemble_list.h"

namespace {

/// A question, and where its answer goes: in the order of the questions, which is the document's
/// too.
struct Location_item {
  const char* question;
  const char* key;
  std::string Ensemble_list::*answer;
};
constexpr std::array location_items{
    Location_item{"Street number (optional): \n", "StreetNo", &Ensemble_list::street_no},
    Location_item{"Street name: \n", "Street", &Ensemble_list::street},
    Location_item{"Postal code: \n", "PostalCode", &Ensemble_list::postal_code},
    Location_item{"City: \n", "City", &Ensemble_list::city},
    Location_item{"Country: \n", "Country", &Ensemble_list::country},
    Location_item{"Indoor or outdoor. If indoor, please indicate the building level (0 = ground "
                  "floor) as well: \n",
                  "Floor", &Ensemble_list::floor},
    Location_item{"GPS latitude (optional): \n", "gps_latitude", &Ensemble_list::gps_latitude},
    Location_item{"GPS longitude (optional): \n", "gps_longitude", &Ensemble_list::gps_longitude},
};

void write_location(std::ostream& out, const Ensemble_list& ensembles) {
  out << "\"Location\": {\n";
  const char* separator = "";
  for (const auto& item : location_items) {
    out << separator << '"' << item.key << "\": \"" << ensembles.*item.answer << '"';
    separator = ",\n";
  }
  out << "\n},\n";
}

void write_entry(std::stringstream& out, Ensemble_list& ensembles, std::size_t index) {
  out << "{\n\"EnsemleNo\": " << index << ",\n";
  (void)ensembles.digrad_status[index].json_print_data(out);  // the writers always succeed
  if (ensembles.service_list[index].NumberServices != 0) {
    out << ",\n";
    (void)ensembles.service_list[index].json_print_data(out);
  }
  if (ensembles.ensemble_time[index].year != 0) {
    out << ",\n";
    (void)ensembles.ensemble_time[index].json_print_data(out);
  }
  out << "}\n";
}

}  // namespace

int Ensemble_list::get_geo_location() {
  std::cout << "Please indicate the location of the Corvane (the antenna location) during the "
               "scan:\n";
  for (const auto& item : location_items) {
    std::cout << item.question << std::flush;
    auto& answer = this->*item.answer;
    answer.clear();
    std::getline(std::cin, answer);
  }
  std::cout << "Thank you\n" << std::flush;
  file_name = "ensemblescan_" + postal_code + "_" + city + ".json";
  return 0;
}

int Ensemble_list::json_print_data(std::stringstream& out) {
  out << "{\"content\": \"FullStationScan\",\n\"FrequencyRegion\": \"Unknown\",\n";
  write_location(out, *this);
  out << "\"ensembleList\": [\n";
  const auto entries = std::min<std::size_t>(number_of_frequencies, slots);
  for (std::size_t i = 0; i < entries; ++i) {
    if (i > 0) out << ',';
    write_entry(out, *this, i);
  }
  out << "]}";
  return 0;
}

int Ensemble_list::save_to_file() {
  std::stringstream document;
  std::ofstream file(file_name, std::ios::trunc);
  (void)json_print_data(document);
  file << document.view();
  return 0;
}
