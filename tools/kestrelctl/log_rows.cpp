// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/log_rows.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "kestrelctl/now_json.h"

namespace kestrelctl {
namespace {

constexpr std::array text_keys{"text", "title", "artist"};

Row make_row(const char* kind, const std::string& site) {
  return {{"schema", row_schema}, {"kind", kind}, {"site", site}};
}

}  // namespace

Row sample_row(const std::string& site, const Now& now) {
  auto row = make_row("sample", site);
  row.update(describe_as_json(now));
  return row;
}

std::vector<Row> Survey::visit(const Visit& visit, const Block& found) {
  const auto time = format_utc_ms(std::chrono::system_clock::now());
  const auto place = [&](const char* kind) {
    auto row = make_row(kind, site_);
    const auto block = block_name(visit.khz);
    row.update({{"time", time}, {"block", block.empty() ? Row() : Row(block)}, {"khz", visit.khz}});
    return row;
  };
  const auto if_found = [&](auto value) { return visit.has_ensemble ? Row(value) : Row(); };
  std::vector<Row> rows{place("detection")};
  rows.back().update({{"signal", visit.has_signal},
                      {"ensemble", visit.has_ensemble},
                      {"rssi_dbuv", visit.rssi_dbuv},
                      {"snr_db", if_found(found.snr_db)},
                      {"cnr_db", if_found(found.cnr_db)},
                      {"fic_quality", if_found(found.fic_quality)},
                      {"services", if_found(visit.services)},
                      {"list_version", if_found(visit.list_version)}});

  const bool is_first = !blocks_.contains(visit.khz);
  auto& before = blocks_[visit.khz];
  const auto add = [&](bool has_appeared, const char* what, const Row& details) {
    if (is_first) return;
    rows.push_back(place(has_appeared ? "appeared" : "disappeared"));
    rows.back()["what"] = what;
    rows.back().update(details);
  };
  if (visit.has_ensemble != before.has_ensemble) {
    add(visit.has_ensemble, "ensemble", Row::object());
  }
  before.has_ensemble = visit.has_ensemble;
  // A block that is out of reach says nothing about its services.
  if (!visit.has_ensemble) return rows;
  std::map<std::uint32_t, std::string> services;
  for (const auto& service : found.services) services.emplace(service.id, service.name);
  const auto add_missing = [&](bool has_appeared, const auto& from, const auto& in) {
    for (const auto& [id, name] : from) {
      if (in.contains(id)) continue;
      add(has_appeared, "service", {{"station", name}, {"service_id", id}});
    }
  };
  // Of an ensemble that was never seen all services are new, and one row says so.
  if (!before.services.empty()) add_missing(true, services, before.services);
  add_missing(false, before.services, services);
  before.services = std::move(services);
  return rows;
}

void Row_file::open() {
  constexpr mode_t mode = 0644;
  if (name_ == "-") {
    descriptor_ = STDOUT_FILENO;
    return;
  }
  // Without O_NONBLOCK a pipe that nobody reads would hold the sampler up.
  descriptor_ = ::open(name_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, mode);
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category());
  const auto size = lseek(descriptor_, 0, SEEK_END);
  const int reader = size > 0 ? ::open(name_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
  char last = '\n';
  is_line_open_ = reader >= 0 && pread(reader, &last, 1, size - 1) == 1 && last != '\n';
  if (reader >= 0) (void)::close(reader);
}

void Row_file::close() {
  if (descriptor_ > STDERR_FILENO) (void)::close(descriptor_);
  descriptor_ = -1;
  said_ = {};
}

void Row_file::append(Row row) {
  if (descriptor_ < 0) open();
  auto said = said_;
  if (row.contains(text_keys.front())) {
    for (const auto* key : text_keys) {
      if (said_.contains(key) && said_[key] == row[key]) {
        row.erase(key);
      } else {
        said[key] = row[key];
      }
    }
  }
  auto line = (is_line_open_ ? "\n" : "") + row.dump() + '\n';
  const auto size = lseek(descriptor_, 0, SEEK_END);  // of a pipe: -1
  const auto written = write(descriptor_, line.data(), line.size());
  if (written == std::ssize(line)) {
    is_line_open_ = false;
    said_ = std::move(said);
    return;
  }
  const int reason = written < 0 ? errno : ENOSPC;
  if (written > 0 && ftruncate(descriptor_, size) != 0) is_line_open_ = true;
  close();
  throw std::system_error(reason, std::generic_category());
}

}  // namespace kestrelctl
