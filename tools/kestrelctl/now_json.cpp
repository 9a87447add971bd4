// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/now_json.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

namespace kestrelctl {
namespace {

constexpr const char* firmware_names[]{"off", "dab", "fm", "other"};

Json text_or_null(const std::string& text) { return text.empty() ? Json() : Json(text); }

}  // namespace

Json describe_as_json(const Now& now) {
  const auto& reception = now.reception;
  const bool is_dab = reception.firmware == Firmware::dab;
  const bool is_fm = reception.firmware == Firmware::fm;
  const auto if_tuned = [&](bool applies, auto value) {
    return applies && reception.khz != 0 ? Json(value) : Json();
  };
  const auto if_known = [](const auto& value, auto convert) {
    return value ? Json(convert(*value)) : Json();
  };
  const auto& station = now.station;
  return {
      {"time", format_utc_ms(std::chrono::system_clock::now())},
      {"firmware", firmware_names[static_cast<std::size_t>(reception.firmware)]},
      {"station", if_known(station, [](const Station& s) { return s.name; })},
      {"service_id",
       is_dab ? if_known(station, [](const Station& s) { return s.service_id; }) : Json()},
      {"component_id",
       is_dab ? if_known(station, [](const Station& s) { return s.component_id; }) : Json()},
      {"block", text_or_null(is_dab ? block_name(reception.khz) : "")},
      {"khz", if_tuned(true, reception.khz)},
      {"received", if_tuned(true, reception.is_received)},
      {"rssi_dbuv", if_tuned(true, reception.rssi_dbuv)},
      {"snr_db", if_tuned(true, reception.snr_db)},
      {"cnr_db", if_tuned(is_dab, reception.cnr_db)},
      {"fic_quality", if_tuned(is_dab, reception.fic_quality)},
      {"fib_errors", if_tuned(is_dab, reception.fib_errors)},
      {"muted", if_tuned(is_dab, reception.is_muted)},
      {"multipath", if_tuned(is_fm, reception.multipath)},
      {"volume", now.volume},
      {"stopped", if_tuned(is_fm, now.is_silent)},
      {"text", text_or_null(now.text.text)},
      {"title", text_or_null(now.text.title)},
      {"artist", text_or_null(now.text.artist)},
      {"pi", is_fm ? if_known(now.rds.pi, [](unsigned pi) { return fmt::format("{:04X}", pi); })
                   : Json()},
      {"ps", text_or_null(is_fm ? now.rds.name() : "")},
      {"programme_type",
       is_fm ? if_known(now.rds.pty, [](unsigned type) { return programme_type_name(type, true); })
             : Json()},
      {"tp", is_fm && now.rds.tp ? Json(*now.rds.tp) : Json()},
      {"ta", is_fm && now.rds.ta ? Json(*now.rds.ta) : Json()},
      {"alternatives_khz", is_fm ? Json(now.rds.alternatives_khz) : Json()},
      {"broadcast_time", text_or_null(now.broadcast_time)},
  };
}

std::string format_utc_ms(std::chrono::system_clock::time_point time) {
  const auto ms = std::chrono::floor<std::chrono::milliseconds>(time);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(ms);
  return fmt::format("{:%FT%T}.{:03}Z", fmt::gmtime(seconds), (ms - seconds).count());
}

}  // namespace kestrelctl
