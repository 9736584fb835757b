// SPDX-License-Identifier: Apache-2.0

// What a report without input shows of a log: literal text from the project's own tables, and the
// values that their places allow. Everything else is kPrivate, and a line that matches no row is
// replaced by its length.
//
// Nothing here guesses what a text means. Whether a value is shown depends on its place, and it
// must be a plausible one: whatever a line says, all that is shown of it is words from the tables,
// numbers of at most seven digits, error codes, versions and the router's label.
//
// Threading: one thread.
// Ownership: a ShownLines refers to its devices, which must outlive it.
// Order: devices are numbered as they appear; lines keep their order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/kit/RecentLogLines.h"

namespace tool {

inline constexpr std::string_view kPrivate = "<private>";

/// Gives devices names that reveal nothing about them.
class DeviceOrder {
 public:
  /// "device 1" for the first device asked for, and the same name whenever it is asked for again.
  [[nodiscard]] std::string nameOf(std::uint64_t registryEntryID);

 private:
  std::map<std::uint64_t, std::size_t> places_;
};

/// Numbers from 0 to 9999999: process IDs, counts.
[[nodiscard]] bool isShownNumber(std::int64_t number);
/// Such a number, or the code of an error that a router answers with.
[[nodiscard]] bool isShownCode(std::int64_t code);
/// "1.10.2", at most three numbers of three digits; otherwise kPrivate.
[[nodiscard]] std::string shownVersion(std::string_view version);
/// The router's or the job daemon's label; otherwise kPrivate.
[[nodiscard]] std::string shownLabel(std::string_view label);
/// How a job last ended, in the job daemon's words.
[[nodiscard]] std::string shownEnd(std::string_view lastEnd);
/// "<a line of 57 bytes>"
[[nodiscard]] std::string lineOfLength(std::uint64_t bytes);

/// A line of the system log: time, process and text if the process is the router or the job daemon
/// and the text matches a row of their tables; otherwise its length.
[[nodiscard]] std::string shownLogLine(std::string_view line, DeviceOrder& devices);
/// Whether such a line tells of a failure.
[[nodiscard]] bool isErrorLine(std::string_view line);
/// A line of the framework's own log if it comes from a log site of the client; otherwise its
/// length.
[[nodiscard]] std::string shownRecentLine(const platform::RecentLogLines::Line& line);

/// The same for text that arrives in pieces, in bounded memory.
class ShownLines {
 public:
  enum class Source {
    SystemLog,
    Unknown,  ///< every line is replaced by its length
  };

  ShownLines(Source source, DeviceOrder& devices) : source_(source), devices_(devices) {}
  /// Returns the lines completed by these bytes.
  [[nodiscard]] std::string feed(std::string_view bytes);
  /// Returns the last line if it has no line feed.
  [[nodiscard]] std::string finish();

 private:
  void take(std::string_view part);
  [[nodiscard]] std::string takeLine();

  const Source source_;
  DeviceOrder& devices_;
  std::string line_;        // its beginning: longer than any known line
  std::uint64_t size_ = 0;  // of the whole line
};

}  // namespace tool
