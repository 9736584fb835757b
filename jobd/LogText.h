// Making what jobs write fit for a log that holds one entry a line.
//
// Threading: pure functions; a LineSplitter belongs to one thread.
// Order: lines leave in the order in which their bytes came.
#pragma once

#include <cstddef>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>

namespace jobd {

/// The longest text of one entry, in bytes before it is made printable. Longer lines go on in a
/// further entry.
inline constexpr std::size_t maximumEntryBytes = 2048;

/// "Nov 21 03:12:45 host name[345]: text\n", the text made one printable line; a day below 10 is
/// preceded by two blanks in all.
[[nodiscard]] std::string logEntry(const std::tm& time, std::string_view host,
                                   std::string_view name, long process, std::string_view text);

/// Cuts a stream of bytes into lines, at most maximumEntryBytes each, never inside a UTF-8
/// sequence.
class LineSplitter {
 public:
  using Sink = std::function<void(std::string_view line)>;

  void feed(std::string_view bytes, const Sink& sink);
  /// What is left without a line's end.
  void finish(const Sink& sink);

 private:
  std::string rest_;
};

}  // namespace jobd
