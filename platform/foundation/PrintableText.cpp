// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/PrintableText.h"

#include <algorithm>
#include <array>

#include "platform/foundation/Format.h"
#include "platform/foundation/Text.h"
#include "platform/foundation/UTF8Validator.h"

namespace platform {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

/// Unicode's general categories Cc, Cf, Zl and Zp, in ascending order.
constexpr std::array kNonPrinting{
    Range{0x0000, 0x001F},   Range{0x007F, 0x009F},   Range{0x00AD, 0x00AD},
    Range{0x0600, 0x0605},   Range{0x061C, 0x061C},   Range{0x06DD, 0x06DD},
    Range{0x070F, 0x070F},   Range{0x0890, 0x0891},   Range{0x08E2, 0x08E2},
    Range{0x180E, 0x180E},   Range{0x200B, 0x200F},   Range{0x2028, 0x202E},
    Range{0x2060, 0x206F},   Range{0xFEFF, 0xFEFF},   Range{0xFFF9, 0xFFFB},
    Range{0x110BD, 0x110BD}, Range{0x110CD, 0x110CD}, Range{0x13430, 0x1343F},
    Range{0x1BCA0, 0x1BCA3}, Range{0x1D173, 0x1D17A}, Range{0xE0001, 0xE007F}};

bool isNonPrinting(char32_t character) {
  const auto* const range =
      std::lower_bound(kNonPrinting.begin(), kNonPrinting.end(), character,
                       [](const Range& each, char32_t sought) { return each.last < sought; });
  return range != kNonPrinting.end() && character >= range->first;
}

std::string escaped(char32_t character) {
  const auto number = static_cast<std::uint32_t>(character);
  if (number < 0xA0) return stringWithFormat("\\x%02x", number);
  return stringWithFormat(number > 0xFFFF ? "\\U%08x" : "\\u%04x", number);
}

/// The length of the UTF-8 sequence at the start of `text`; 0 if there is none.
std::size_t characterLength(std::string_view text) {
  UTF8Validator validator;
  for (std::size_t length = 1; length <= text.size(); ++length) {
    if (!validator.accept(text.substr(length - 1, 1))) return 0;
    if (validator.isComplete()) return length;
  }
  return 0;
}

/// Moves one character, or one invalid byte, from the start of `text` to `result`, escaped if
/// necessary.
template <class Keeps>
void moveCharacter(std::string_view& text, std::string& result, const Keeps& keeps) {
  const std::size_t length = characterLength(text);
  const std::string_view sequence = text.substr(0, std::max<std::size_t>(length, 1));
  text.remove_prefix(sequence.size());
  std::size_t position = 0;
  if (length == 0) {
    result += stringWithFormat("\\x%02x", static_cast<unsigned char>(sequence.front()));
  } else if (const char32_t character = nextCodePoint(sequence, position);
             isNonPrinting(character) && !keeps(character)) {
    result += escaped(character);
  } else {
    result += sequence;
  }
}

}  // namespace

std::string printableLine(std::string_view text, std::size_t maximumCharacters) {
  constexpr std::string_view ellipsis = "…";
  std::string result;
  std::size_t lastStart = 0;
  const auto keepsNothing = [](char32_t) { return false; };
  for (std::size_t count = 0; !text.empty(); ++count) {
    if (count == maximumCharacters) {
      result.resize(lastStart);
      return maximumCharacters == 0 ? result : result.append(ellipsis);
    }
    lastStart = result.size();
    if (text.front() == '\t') {
      result += ' ';
      text.remove_prefix(1);
    } else {
      moveCharacter(text, result, keepsNothing);
    }
  }
  return result;
}

std::string printableText(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    moveCharacter(text, result,
                  [](char32_t character) { return character == '\n' || character == '\t'; });
  }
  return result;
}

}  // namespace platform
