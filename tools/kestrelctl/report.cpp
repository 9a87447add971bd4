// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl report`: puts what the scans say, as JSON, into the page that shows it.
#include <fmt/format.h>

#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <stdexcept>

#include "kestrelctl/commands.h"
#include "kestrelctl/files.h"
#include "kestrelctl/now_json.h"
#include "kestrelctl/receiver.h"
#include "kestrelctl/report_page.h"
#include "kestrelctl/stations.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

/// `name` as one word of a shell.
std::string quote(const std::string& name) {
  if (name.find_first_of("\\\"$`!") == std::string::npos) return '"' + name + '"';
  return '\'' + std::regex_replace(name, std::regex("'"), "'\\''") + '\'';
}

/// The ids of the services that can be played, by what their names are found by.
using Ids = std::map<std::string, std::set<std::uint32_t>>;

/// What plays `station`: its name, and its id where several have that name; nothing if it cannot be
/// played.
std::string playing_command(const Station& station, const Ids& ids) {
  if (!station.obstacle().empty()) return "";
  const auto command = "sudo kestrelctl play " + quote(station.name);
  const bool is_clear = !station.name.empty() && ids.at(fold(station.name)).size() == 1;
  return is_clear ? command : fmt::format("{} --service {}", command, station.service_id);
}

Json describe(const Block& block, const Ids& ids) {
  auto services = Json::array();
  for (const auto& service : block.services) {
    const auto station = make_station(block, service);
    services.push_back({{"name", station.name},
                        {"service_id", station.service_id},
                        {"component_id", station.component_id},
                        {"kind", station.kind},
                        {"type", station.programme_type},
                        {"obstacle", station.obstacle()},
                        {"command", playing_command(station, ids)}});
  }
  return {{"index", block.index},
          {"block", block_name(block.khz)},
          {"khz", block.khz},
          {"rssi", block.rssi_dbuv},
          {"snr", block.snr_db},
          {"cnr", block.cnr_db},
          {"fic_quality", block.fic_quality},
          {"signal", block.has_signal()},
          {"services", std::move(services)}};
}

Json describe(const Scan& scan) {
  auto location = Json::array();
  for (std::size_t i = 0; i < scan.location.size(); ++i) {
    if (!scan.location[i].empty())
      location.push_back({location_questions[i].name, scan.location[i]});
  }
  auto blocks = Json::array();
  Ids ids;
  for (const auto& station : list_stations(std::span(&scan, 1))) {
    if (station.obstacle().empty()) ids[fold(station.name)].insert(station.service_id);
  }
  for (const auto& block : scan.blocks) blocks.push_back(describe(block, ids));
  return {{"file", make_harmless(scan.path.string())},
          {"time", format_utc(scan.time)},
          {"location", std::move(location)},
          {"blocks", std::move(blocks)}};
}

}  // namespace

int report_command(const Store& store, const Output_options& options) {
  auto scans = read_scans_or_store(options.files, store);
  std::erase_if(scans, [](const Scan& scan) { return scan.is_fm; });
  if (scans.empty()) throw std::runtime_error("there is no DAB scan to report");
  // What is kept may reach back for years: the newest, and what changed since the one before.
  if (options.files.empty() && scans.size() > 2) scans.erase(scans.begin(), scans.end() - 2);
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  Json data{{"program", "kestrelctl " KESTREL_VERSION}, {"made", format_utc(now)}};
  for (const auto& scan : scans) data["scans"].push_back(describe(scan));
  std::string page(report_page);
  constexpr std::string_view place = "@DATA@";
  // What is between script tags must not close them.
  const auto text = std::regex_replace(data.dump(), std::regex("<"), "\\u003c");
  page.replace(page.find(place), place.size(), text);
  write_output(options.output, page, scans);
  return exit_status::success;
}

}  // namespace kestrelctl
