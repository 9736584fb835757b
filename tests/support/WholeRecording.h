// SPDX-License-Identifier: Apache-2.0

// Reads a recording into memory, for tests that access its reports in any order.
//
// Threading: any thread.
// Errors: RecordingError.
// Order: that of the file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "router/Recording.h"

namespace test {

struct WholeRecording {
  router::RecordingHeader header;
  std::vector<std::chrono::microseconds> times;
  std::vector<std::vector<std::uint8_t>> reports;
};

inline WholeRecording readWhole(router::RecordingReader& reader) {
  WholeRecording whole;
  whole.header = reader.header();
  router::RecordedReport report;
  while (reader.next(&report)) {
    whole.times.push_back(report.time);
    whole.reports.emplace_back(report.bytes.begin(), report.bytes.end());
  }
  return whole;
}

/// A reader of `text`, which must outlive it.
inline router::RecordingReader readerOf(std::string_view text, const std::string& fileName,
                                        std::uint32_t device = 0) {
  return {[rest = text](std::span<char> buffer) mutable {
            const std::size_t count = std::min(buffer.size(), rest.size());
            std::copy_n(rest.begin(), count, buffer.begin());
            rest.remove_prefix(count);
            return count;
          },
          fileName, device};
}

inline WholeRecording parseRecording(std::string_view text, const std::string& fileName,
                                     std::uint32_t device = 0) {
  router::RecordingReader reader = readerOf(text, fileName, device);
  return readWhole(reader);
}

inline WholeRecording readRecording(const std::filesystem::path& file, std::uint32_t device = 0) {
  const router::RecordingFile opened = router::RecordingFile::at(file, device);
  router::RecordingReader reader = opened.read();
  return readWhole(reader);
}

}  // namespace test
