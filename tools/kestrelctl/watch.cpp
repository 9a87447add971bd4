// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl watch`: one report of kestrel again and again, of which only the changes are shown.
#include <algorithm>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "kestrelctl/commands.h"
#include "kestrelctl/scan_file.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

/// What a report says, in its order: a label and a value each.
using Values = std::vector<std::pair<std::string, std::string>>;

constexpr std::string_view text_label = "text";
constexpr std::string_view error_label = "error";

/// Without blanks at its ends, and harmless.
std::string clean(std::string_view text) {
  const auto begin = std::min(text.find_first_not_of(" \t\r\n"), text.size());
  return make_harmless(text.substr(begin));
}

/// A line of a report is a label, a colon, blanks and a value. Headings have no value.
Values read_lines(std::string_view report) {
  Values values;
  while (!report.empty()) {
    const auto line = report.substr(0, report.find('\n'));
    report.remove_prefix(std::min(line.size() + 1, report.size()));
    const auto colon = line.find(": ");
    if (colon == std::string_view::npos) continue;
    auto value = clean(line.substr(colon + 1));
    if (!value.empty()) values.emplace_back(clean(line.substr(0, colon)), std::move(value));
  }
  return values;
}

Values read_report(const Watch_options& options, Stop_signals& stop) {
  const auto report = run_kestrel(options.kestrel, {options.what}, stop);
  if (options.what != "-D") return read_lines(report);
  auto text = clean(report);
  if (text == "Error getting service data") throw Cannot_run("the receiver gave no service data");
  return text.empty() ? Values{} : Values{{std::string(text_label), std::move(text)}};
}

/// Prints what differs from what was seen before, and remembers it.
class Changes {
 public:
  explicit Changes(bool is_json) : is_json_(is_json) {}

  void show(const Values& values) {
    const auto time =
        format_utc(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
    nlohmann::ordered_json object{{"time", time}};
    for (const auto& [label, value] : values) {
      const auto [before, is_new] = seen_.try_emplace(label, value);
      if (!is_new && before->second == value) continue;
      object[label] = as_json(label, value);
      if (!is_json_) show_line(time, label, is_new ? "" : before->second, value);
      before->second = value;
    }
    if (is_json_ && object.size() > 1) std::cout << object.dump() << '\n';
    std::cout << std::flush;
    // Said again when it comes again.
    if (std::ranges::find(values, error_label, &Values::value_type::first) == values.end()) {
      seen_.erase(std::string(error_label));
    }
  }

 private:
  static void show_line(const std::string& time, const std::string& label,
                        const std::string& before, const std::string& value) {
    std::cout << time << "  ";
    if (label != text_label) std::cout << label << ": ";
    if (label != text_label && !before.empty()) std::cout << before << " -> ";
    std::cout << value << '\n';
  }
  static nlohmann::ordered_json as_json(const std::string& label, const std::string& value) {
    constexpr std::size_t digits_of_any_number = 10;
    const bool is_number = label != text_label && value.size() <= digits_of_any_number &&
                           value.find_first_not_of("0123456789") == std::string::npos;
    if (is_number) return std::stoull(value);
    return value;
  }

  bool is_json_;
  std::map<std::string, std::string> seen_;
};

}  // namespace

int watch_command(const Watch_options& options) {
  Stop_signals stop;
  Changes changes(options.is_json);
  for (unsigned run = 1;; ++run) {
    try {
      const auto values = read_report(options, stop);
      if (run == 1 && values.empty()) {
        std::cerr << "kestrelctl: nothing yet; text and --reception need the DAB firmware, --fm "
                     "the FM firmware\n";
      }
      changes.show(values);
    } catch (const Cannot_run& error) {
      // At first it is a mistake; later it is something to tell, and to wait for its end.
      if (run == 1) throw;
      changes.show({{std::string(error_label), clean(error.what())}});
    }
    if (run == options.runs || !std::cout || !stop.pause(options.every)) break;
  }
  return exit_status::success;
}

}  // namespace kestrelctl
