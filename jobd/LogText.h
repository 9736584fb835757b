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

/// What such a further entry begins with: no line of anybody's table does.
inline constexpr std::string_view continuationMark = "… ";

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
  /// For the sink: whether what it is given goes on with the line of the call before.
  [[nodiscard]] bool goesOn() const { return goesOn_; }

 private:
  void giveTo(const Sink& sink, std::string_view piece, bool isLast);

  std::string rest_;
  bool goesOn_ = false;
};

}  // namespace jobd
