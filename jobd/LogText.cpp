#include "jobd/LogText.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace jobd {
namespace {

/// The length of the well-formed UTF-8 sequence at the front of `text`, 0 if there is none.
std::size_t sequenceLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const auto continues = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
  const std::uint8_t first = byte(0);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return continues(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    if (!continues(1) || !continues(2)) return 0;
    if (first == 0xE0 && byte(1) < 0xA0) return 0;  // overlong
    if (first == 0xED && byte(1) > 0x9F) return 0;  // surrogate
    return 3;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    if (!continues(1) || !continues(2) || !continues(3)) return 0;
    if (first == 0xF0 && byte(1) < 0x90) return 0;
    if (first == 0xF4 && byte(1) > 0x8F) return 0;
    return 4;
  }
  return 0;
}

/// Characters that a terminal or a reader of lines acts upon.
bool isControl(std::string_view sequence) {
  const auto first = static_cast<std::uint8_t>(sequence[0]);
  if (sequence.size() == 1) return first < 0x20 || first == 0x7F;
  const auto second = static_cast<std::uint8_t>(sequence[1]);
  if (sequence.size() == 2) return first == 0xC2 && second < 0xA0;  // U+0080 to U+009F
  return sequence == "\xE2\x80\xA8" || sequence == "\xE2\x80\xA9";  // line and paragraph separator
}

void appendEscaped(std::string& out, std::string_view bytes) {
  for (const char c : bytes) {
    std::array<char, 8> escape{};
    std::snprintf(escape.data(), escape.size(), "\\x%02x",
                  static_cast<unsigned>(static_cast<std::uint8_t>(c)));
    out += escape.data();
  }
}

/// Where to cut `text`, which is longer than one entry: not inside a sequence.
std::size_t cutPosition(std::string_view text) {
  std::size_t at = maximumEntryBytes;
  for (int back = 0; back < 3 && (static_cast<std::uint8_t>(text[at]) & 0xC0) == 0x80; ++back) --at;
  return at;
}

}  // namespace

std::string harmless(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = sequenceLength(text);
    const std::string_view sequence = text.substr(0, length == 0 ? 1 : length);
    if (sequence == "\t")
      result += ' ';
    else if (length == 0 || isControl(sequence))
      appendEscaped(result, sequence);
    else
      result += sequence;
    text.remove_prefix(sequence.size());
  }
  return result;
}

std::string logEntry(const std::tm& time, std::string_view host, std::string_view name,
                     long process, std::string_view text) {
  static constexpr std::array<const char*, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::array<char, 64> stamp{};
  std::snprintf(stamp.data(), stamp.size(), "%s %2d %02d:%02d:%02d ",
                months.at(static_cast<std::size_t>(time.tm_mon) % 12), time.tm_mday, time.tm_hour,
                time.tm_min, time.tm_sec);
  return stamp.data() + std::string(host) + " " + std::string(name) + "[" +
         std::to_string(process) + "]: " + harmless(text) + "\n";
}

void LineSplitter::feed(std::string_view bytes, const Sink& sink) {
  rest_ += bytes;
  std::string_view left = rest_;
  for (;;) {
    const std::size_t end = left.find('\n');
    const std::size_t length = end == std::string_view::npos ? left.size() : end;
    if (length > maximumEntryBytes) {
      const std::size_t cut = cutPosition(left);
      sink(left.substr(0, cut));
      left.remove_prefix(cut);
    } else if (end == std::string_view::npos) {
      break;
    } else {
      sink(left.substr(0, end));
      left.remove_prefix(end + 1);
    }
  }
  rest_ = std::string(left);
}

void LineSplitter::finish(const Sink& sink) {
  if (!rest_.empty()) sink(rest_);
  rest_.clear();
}

}  // namespace jobd
