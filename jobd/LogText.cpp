// SPDX-License-Identifier: Apache-2.0

#include "jobd/LogText.h"

#include <cstdint>

namespace jobd {
namespace {

static_assert(kMaximumEntryBytes + kContinuationMark.size() <=
              platform::kMaximumLogEntryCharacters);

/// Where to cut `text`, which is longer than one entry: not inside a UTF-8 sequence.
std::size_t cutPosition(std::string_view text) {
  std::size_t at = kMaximumEntryBytes;
  for (int back = 0; back < 3 && (static_cast<std::uint8_t>(text[at]) & 0xC0) == 0x80; ++back) --at;
  return at;
}

}  // namespace

void LineSplitter::feed(std::string_view bytes, const Sink& sink) {
  rest_ += bytes;
  std::string_view left = rest_;
  for (;;) {
    const std::size_t end = left.find('\n');
    const std::size_t length = end == std::string_view::npos ? left.size() : end;
    if (length > kMaximumEntryBytes) {
      const std::size_t cut = cutPosition(left);
      giveTo(sink, left.substr(0, cut), false);
      left.remove_prefix(cut);
    } else if (end == std::string_view::npos) {
      break;
    } else {
      giveTo(sink, left.substr(0, end), true);
      left.remove_prefix(end + 1);
    }
  }
  rest_ = std::string(left);
}

void LineSplitter::finish(const Sink& sink) {
  if (!rest_.empty()) giveTo(sink, rest_, true);
  rest_.clear();
  continuesLine_ = false;
}

void LineSplitter::giveTo(const Sink& sink, std::string_view piece, bool isLast) {
  sink(piece);
  continuesLine_ = !isLast;
}

}  // namespace jobd
