// SPDX-License-Identifier: Apache-2.0

// A recording as it is drawn: the whole of it in memory, with the course of each control.
//
// Threading: one thread.
// Errors: router::RecordingError.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "router/Recording.h"
#include "router/ReportDescriptor.h"
#include "router/policy/DeviceClass.h"
#include "tool/measuring/Controls.h"
#include "tool/measuring/Measurement.h"

namespace tool {

/// The reports with their times, which never run backwards: where those of the recording do, they
/// go on from the last one. Without times, each report is at its number.
struct PictureReports {
  std::vector<std::int64_t> times;  ///< microseconds, or numbers
  std::vector<std::uint8_t> bytes;  ///< of all of them
  std::vector<std::size_t> ends;    ///< where each one's bytes end
  bool hasTimes = false;

  [[nodiscard]] std::size_t count() const { return times.size(); }
  [[nodiscard]] std::span<const std::uint8_t> report(std::size_t index) const;
  [[nodiscard]] std::int64_t end() const { return times.empty() ? 0 : times.back(); }
};

/// The values of one axis.
struct AxisTrack {
  Control control;
  std::vector<std::uint32_t> reports;  ///< numbers of the reports that have a value
  std::vector<std::int64_t> values;

  /// Whether it has more than one value.
  [[nodiscard]] bool moves() const;
};

/// When a button or key was down.
struct SwitchTrack {
  struct Span {
    std::int64_t from = 0;
    std::int64_t to = 0;
  };
  Control control;
  std::vector<Span> spans;
};

struct PictureData {
  std::string file;  ///< its name, without the directory, which is nobody else's business
  router::RecordingHeader header;
  std::shared_ptr<const router::ReportDescriptor> descriptor;
  std::optional<router::ReportDescriptorError> fault;
  router::Classification classification;
  PictureReports reports;
  std::vector<AxisTrack> axes;
  std::vector<SwitchTrack> switches;
  Measurement measurement;
};

[[nodiscard]] PictureData readPicture(const std::string& file, std::uint32_t device);

}  // namespace tool
