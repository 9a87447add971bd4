// SPDX-License-Identifier: GPL-3.0-or-later
//
// The last rows as metrics in Prometheus' text format, for node_exporter's textfile collector.
#pragma once

#include <map>
#include <string>

#include "kestrelctl/log_rows.h"

namespace kestrelctl {

class Metrics {
 public:
  explicit Metrics(std::string site) : site_(std::move(site)) {}

  /// Take a sample, which replaces the one before, or a detection, which replaces that of its
  /// block; other kinds are not for metrics.
  void take(const Row& row);
  /// The receiver does not answer: the figures are no longer true.
  void clear();
  [[nodiscard]] bool is_up() const { return is_up_; }
  /// The text of the file.
  [[nodiscard]] std::string format() const;

 private:
  std::string site_;
  bool is_up_ = false;
  double last_sample_ = 0;           ///< Unix time in seconds
  std::map<std::string, Row> rows_;  ///< by block; of samples the one, under ""
};

}  // namespace kestrelctl
