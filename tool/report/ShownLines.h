// What a report without input shows of a log: literal text of the project's own tables, and the
// values that their places let be shown. Everything else is kPrivate, and a line that is no row's
// is replaced by its length.
//
// Nothing here guesses what a text means. A value is shown for the place that it stands in, and
// only where it is a likely one: whatever a line says, what is shown of it is words of the tables,
// numbers of seven digits at most, codes of errors, versions, and the router's label.
//
// Threading: one thread.
// Ownership: values; a ShownLines refers to its devices.
// Order: devices are counted as they come; lines keep their order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/kit/RecentLogLines.h"

namespace tool {

inline constexpr std::string_view kPrivate = "<private>";

/// Gives devices names that say nothing of them.
class DeviceOrder {
 public:
  /// "device 1" for the first that it is asked for, and again whenever it is asked for that.
  [[nodiscard]] std::string nameOf(std::uint64_t registryEntryID);

 private:
  std::map<std::uint64_t, std::size_t> places_;
};

/// Numbers from 0 to 9999999; a process, a count.
[[nodiscard]] bool isShownNumber(std::int64_t number);
/// Such a number, or the code of an error that a router answers with.
[[nodiscard]] bool isShownCode(std::int64_t code);
/// "1.10.2", of three digits a number at most; else kPrivate.
[[nodiscard]] std::string shownVersion(std::string_view version);
/// The router's or the job daemon's; else kPrivate.
[[nodiscard]] std::string shownLabel(std::string_view label);
/// How a job ended last, as the job daemon says it.
[[nodiscard]] std::string shownEnd(std::string_view lastEnd);
/// "<a line of 57 bytes>"
[[nodiscard]] std::string lineOfLength(std::uint64_t bytes);

/// A line of the system log: its time, the process that wrote it and its text, where the process is
/// the router or the job daemon and the text a row of their tables.
[[nodiscard]] std::string shownLogLine(std::string_view line, DeviceOrder& devices);
/// A line of the framework's own log, where it is a site of the client's.
[[nodiscard]] std::string shownRecentLine(const platform::RecentLogLines::Line& line);

/// The same for text that comes in pieces, in bounded memory.
class ShownLines {
 public:
  enum class Source {
    SystemLog,
    Unknown,  ///< of which no line is known
  };

  ShownLines(Source source, DeviceOrder& devices) : source_(source), devices_(devices) {}
  /// The lines that are complete by now.
  [[nodiscard]] std::string feed(std::string_view bytes);
  /// What is left without a line's end.
  [[nodiscard]] std::string finish();

 private:
  void take(std::string_view part);
  [[nodiscard]] std::string takeLine();

  const Source source_;
  DeviceOrder& devices_;
  std::string line_;        // its beginning: more than any line that is known has
  std::uint64_t size_ = 0;  // of the whole line
};

}  // namespace tool
