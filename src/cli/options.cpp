// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/options.h"

#include <algorithm>
#include <array>
#include <cstdlib>

// argp looks for these two by name. The version is that of this program's interface, on which
// scripts depend; the package has its own.
const char* argp_program_version = "kestrel 1.4.0";
const char* argp_program_bug_address = "the issue tracker of the kestrel project";

namespace {

constexpr char args_doc[] =
    "Commands and options can be combined. The command: "
    "'sudo ./kestrel -b D -c 12 -e 17333 -f 33 -g -p -l 50' for example will boot up with DAB "
    "firmware, tune to the frequency with index 33 and the service with id 17333 and component id "
    "12, start playing, print the service list and adjust the volume to a level of 50.";

constexpr char doc[] = "kestrel - simple DAB radio interface to the Si468x for the terminal";

/// One option. No row has argp's flags or a group.
struct Option {
  const char* name;
  char key;
  const char* arg;  ///< name of the argument, or null: takes none
  const char* help;
  std::int32_t arguments::*given;  ///< set to 1; null for a value whose 0 means "not given"
};

constexpr std::array<Option, 21> table{{
    {"level", 'l', "LEVEL",
     "Set the volume level of the radio to a value between 0 (low) and 63 (high)",
     &arguments::volume_given},
    {"boot", 'b', "FIRMWARE",
     "Load the firmware and boot the Si468x. Use argument 'D' to load the DAB firmware, 'F' to "
     "load the FMHD firmware.",
     &arguments::boot},
    {"shutdown", 'k', nullptr, "Shut down the Si468x", &arguments::shutdown},
    {"chip_info", 'i', nullptr, "Prints Si468x information", &arguments::chip_info},
    {"digrad_status", 'd', nullptr, "Prints the digital radio status", &arguments::digrad_status},
    {"event_status", 'n', nullptr, "Prints the digital radio event status",
     &arguments::event_status},
    {"digital_service_list", 'g', nullptr,
     "Prints the digital service list of the ensemble, including service data, always as json",
     &arguments::digital_service_list},
    {"station_text", 'D', nullptr, "Prints the station's text (e.g. songname)",
     &arguments::station_text},
    {"datetime", 't', nullptr, "Prints ensemble date-time as ISO string", &arguments::datetime},
    {"play", 'p', nullptr,
     "Play a station. Service and component have to be given and the Si468x has to be tuned to "
     "the right frequency already.",
     &arguments::play},
    {"frequency", 'f', "FREQUENCY", "Frequency index of the ensemble", nullptr},
    {"service", 'e', "SERVICE", "Service id", nullptr},
    {"component", 'c', "SERVICE", "Component id", nullptr},
    {"i2s_out", 'o', "ENABLE",
     "Enable (i2s_out=1) i2s as output - analog out will be deactivated. To disable, use "
     "i2s_out=0. The board must support his and custom kernel needed. The Si468x must not be "
     "tuned to change this.",
     &arguments::i2s_given},
    {"next", 'x', nullptr, "Tune to the next FMHD station", &arguments::next},
    {"previous", 'X', nullptr, "Tune to the previous FMHD station", &arguments::previous},
    {"fm_frequency", 'F', "FREQUENCY", "Tune to a FM frequency in kHz", nullptr},
    {"rds_status", 'r', nullptr, "Print RDS status information", &arguments::rds_status},
    {"format_json", 'j', nullptr, "Output info as json, if implemented", &arguments::format_json},
    {"full_scan", 'u', nullptr,
     "Scan all (European by default) DAB frequencies for ensembles and save to the file "
     "\"full_scan.json\" in json format.",
     &arguments::full_scan},
    {"frequency_list", 'y', "FILE",
     "Get a frequency list from file. Give the file name of the frequency list to use. The file "
     "must be an ASCII encoded list of frequencies separated by newlines. The list will be reset "
     "after a reboot of the Si468x.",
     &arguments::frequency_list},
}};

/// The table as argp wants it, with the zero row that ends it.
constexpr auto argp_rows() {
  std::array<argp_option, table.size() + 1> rows{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    rows[i] = {table[i].name, table[i].key, table[i].arg, 0, table[i].help, 0};
  }
  return rows;
}
constexpr auto options = argp_rows();

/// As the user typed it: text that is not a number is 0, and the destination's width cuts it.
long number(const char* arg) { return std::strtol(arg, nullptr, 10); }

}  // namespace

const struct argp argp { options.data(), parse_opt, args_doc, doc, nullptr, nullptr, nullptr };

error_t parse_opt(int key, char* arg, argp_state* state) {
  const auto* const option =
      std::find_if(table.begin(), table.end(), [key](const Option& row) { return row.key == key; });
  if (option == table.end()) return ARGP_ERR_UNKNOWN;
  auto& record = *static_cast<arguments*>(state->input);
  if (option->given != nullptr) record.*(option->given) = 1;
  switch (key) {
    case 'l':
      record.volume = static_cast<std::uint32_t>(number(arg));
      break;
    case 'b':
      record.firmware = arg[0];
      break;
    case 'f':
      record.frequency = static_cast<std::uint8_t>(number(arg));
      break;
    case 'e':
      record.service = static_cast<std::uint32_t>(number(arg));
      break;
    case 'c':
      record.component = static_cast<std::uint32_t>(number(arg));
      break;
    case 'o':
      record.i2s_out = static_cast<std::int32_t>(number(arg));
      break;
    case 'F':
      record.fm_frequency = static_cast<std::uint32_t>(number(arg));
      break;
    case 'y':
      record.frequency_list_file = arg;
      break;
    default:
      break;  // a flag alone
  }
  return 0;
}
