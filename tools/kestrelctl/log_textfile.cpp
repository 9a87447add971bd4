// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/log_textfile.h"

#include <chrono>

namespace kestrelctl {
namespace {

struct Metric {
  const char* key = nullptr;  ///< in the row
  const char* name = nullptr;
  const char* help = nullptr;
  double unit = 1;  ///< what the key's number is multiplied with
  const char* type = "gauge";
};
constexpr double percent = 0.01;
constexpr Metric metrics[]{
    {"received", "kestrel_received", "1 while the tuned station is received."},
    {"muted", "kestrel_muted", "1 while the audio is muted for want of a signal."},
    {"rssi_dbuv", "kestrel_rssi_dbuv", "Received signal strength in dBuV."},
    {"snr_db", "kestrel_snr_db", "Signal to noise ratio in dB."},
    {"cnr_db", "kestrel_cnr_db", "Carrier to noise ratio in dB."},
    {"fic_quality", "kestrel_fic_quality_ratio", "Share of good blocks in the FIC.", percent},
    {"fib_errors", "kestrel_fib_errors_total", "Damaged FIBs since the tune.", 1, "counter"},
    {"multipath", "kestrel_multipath_ratio", "Multipath interference on FM.", percent},
    {"ensemble", "kestrel_ensemble_found", "1 if the survey found an ensemble on the block."},
    {"services", "kestrel_services", "Services in the block's list."},
};

std::string escape(std::string_view value) {
  std::string escaped;
  for (const char c : value) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  return escaped;
}

std::string text_of(const Row& row, const char* key) {
  const auto found = row.find(key);
  return found != row.end() && found->is_string() ? found->get<std::string>() : "";
}

/// The block, or the frequency if there is none: "98.50 MHz".
std::string place_of(const Row& row) {
  const auto block = text_of(row, "block");
  return block.empty() ? fmt::format("{:.2f} MHz", row["khz"].get<double>() / 1000) : block;
}

}  // namespace

void Metrics::take(const Row& row) {
  const auto& kind = row["kind"];
  if (kind != "sample" && kind != "detection") return;
  rows_[kind == "sample" ? "" : place_of(row)] = row;
  is_up_ = !row["khz"].is_null();
  using Seconds = std::chrono::duration<double>;
  last_sample_ = Seconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

void Metrics::clear() {
  rows_.clear();
  is_up_ = false;
}

std::string Metrics::format() const {
  std::string text;
  const auto begin = [&text](const char* name, const char* help, const char* type) {
    text += fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type);
  };
  const auto site = escape(site_);
  begin("kestrel_up", "1 if the receiver was on and tuned when it was looked at last.", "gauge");
  text += fmt::format("kestrel_up{{site=\"{}\"}} {}\n", site, is_up_ ? 1 : 0);
  begin("kestrel_last_sample_timestamp_seconds", "When the receiver answered last.", "gauge");
  text += fmt::format("kestrel_last_sample_timestamp_seconds{{site=\"{}\"}} {:.3f}\n", site,
                      last_sample_);
  for (const auto& metric : metrics) {
    bool has_begun = false;
    for (const auto& [block, row] : rows_) {
      const auto value = row.find(metric.key);
      if (value == row.end() || value->is_null()) continue;
      if (!std::exchange(has_begun, true)) begin(metric.name, metric.help, metric.type);
      const auto number = value->is_boolean() ? (value->get<bool>() ? 1.0 : 0.0)
                                              : value->get<double>() * metric.unit;
      text += fmt::format("{}{{site=\"{}\",block=\"{}\",station=\"{}\"}} {:.6g}\n", metric.name,
                          site, escape(place_of(row)), escape(text_of(row, "station")), number);
    }
  }
  return text;
}

}  // namespace kestrelctl
