// SPDX-License-Identifier: Apache-2.0

// What can be seen of one device: made of its report descriptor and of its reports alone.
//
// Threading: one thread at a time.
// Errors: none. Of a faulty descriptor the part before its fault counts; any bytes are a report.
// Order: take the reports in theirs.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "router/ReportDecoder.h"
#include "tool/monitor/Board.h"
#include "tool/monitor/Pace.h"
#include "tool/monitor/Paths.h"
#include "tool/monitor/RawReports.h"
#include "tool/monitor/Tracks.h"

namespace tool::monitor {

class DeviceModel {
 public:
  explicit DeviceModel(std::span<const std::uint8_t> descriptor);

  void take(Time time, std::span<const std::uint8_t> report);

  [[nodiscard]] const std::vector<Track>& tracks() const { return tracks_.all(); }
  [[nodiscard]] const std::vector<Path>& paths() const { return paths_; }
  [[nodiscard]] const Board& board() const { return board_; }
  [[nodiscard]] const Pace& pace() const { return pace_; }
  [[nodiscard]] const RawReports& reports() const { return reports_; }

 private:
  router::ReportDecoder decoder_;
  Tracks tracks_;
  std::vector<Path> paths_;
  Board board_;
  Pace pace_;
  RawReports reports_;
};

}  // namespace tool::monitor
