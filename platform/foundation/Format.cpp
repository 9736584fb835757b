// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/Format.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>
#include <vector>

#include "platform/foundation/Text.h"

namespace platform {
namespace {

// A hostile or mistaken width must not produce gigabytes.
constexpr int kWidestField = 4096;

struct Conversion {
  std::string flags;
  int width = 0;
  int precision = -1;  // if not given
  int bits = 0;
  char letter = '\0';
};

class Renderer {
 public:
  Renderer(std::string_view format, std::span<const FormatArgument> arguments)
      : format_(format), arguments_(arguments) {}

  std::string render() {
    while (position_ < format_.size()) {
      const std::size_t percent = std::min(format_.find('%', position_), format_.size());
      text_.append(format_.substr(position_, percent - position_));
      position_ = percent;
      if (position_ < format_.size()) renderConversion();
    }
    return std::move(text_);
  }

 private:
  void renderConversion() {
    const std::size_t start = position_++;
    const Conversion conversion = parseConversion();
    if (conversion.letter == '%') {
      text_ += '%';
    } else if (conversion.letter == '\0') {
      text_.append(format_.substr(start, position_ - start));
    } else if (next_ >= arguments_.size()) {
      text_ += "(missing)";
    } else {
      append(conversion, arguments_[next_++]);
    }
  }

  /// The current character; at the end NUL, which has no meaning in a conversion.
  [[nodiscard]] char peek() const { return position_ < format_.size() ? format_[position_] : '\0'; }

  Conversion parseConversion() {
    Conversion conversion;
    for (; std::string_view("-+ #0'").find(peek()) != std::string_view::npos; ++position_) {
      if (peek() != '\'') conversion.flags += peek();
    }
    conversion.width = parseNumber();
    if (peek() == '.') {
      ++position_;
      conversion.precision = parseNumber();
    }
    conversion.bits = parseLength();
    if (std::string_view("diuxXocfFeEgGsp@%").find(peek()) != std::string_view::npos) {
      conversion.letter = format_[position_++];
    }
    return conversion;
  }

  /// 0 if there is no number.
  int parseNumber() {
    int number = 0;
    for (; peek() >= '0' && peek() <= '9'; ++position_) {
      number = std::min(kWidestField, number * 10 + (peek() - '0'));
    }
    return number;
  }

  int parseLength() {
    int bits = 32;
    for (;; ++position_) {
      switch (peek()) {
        case 'h':
          bits = bits == 16 ? 8 : 16;
          break;
        case 'l':
        case 'q':
        case 'z':
        case 't':
        case 'j':
          bits = 64;
          break;
        default:
          return bits;
      }
    }
  }

  void append(const Conversion& conversion, const FormatArgument& argument) {
    switch (conversion.letter) {
      case 'd':
      case 'i':
      case 'u':
      case 'x':
      case 'X':
      case 'o':
      case 'c':
        return appendInteger(conversion, argument);
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
        return appendDouble(conversion, argument);
      case 'p':
        if (const auto* pointer = std::get_if<const void*>(&argument)) {
          return appendText(conversion, pointerText(*pointer));
        }
        return appendText(conversion, naturalText(argument));
      default:
        return appendText(conversion, naturalText(argument));
    }
  }

  void appendInteger(const Conversion& conversion, const FormatArgument& argument) {
    std::uint64_t raw = 0;
    if (const auto* number = std::get_if<std::int64_t>(&argument)) {
      raw = static_cast<std::uint64_t>(*number);
    } else if (const auto* natural = std::get_if<std::uint64_t>(&argument)) {
      raw = *natural;
    } else {
      return appendText(conversion, naturalText(argument));
    }
    if (conversion.letter == 'c') return appendCharacter(conversion, raw);
    if (conversion.letter == 'd' || conversion.letter == 'i') {
      return appendPrinted(conversion, "lld",
                           static_cast<long long>(narrowSigned(raw, conversion.bits)));
    }
    const std::uint64_t mask =
        conversion.bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << conversion.bits) - 1;
    appendPrinted(conversion, std::string("ll") + conversion.letter,
                  static_cast<unsigned long long>(raw & mask));
  }

  static std::int64_t narrowSigned(std::uint64_t raw, int bits) {
    switch (bits) {
      case 8:
        return static_cast<std::int8_t>(raw);
      case 16:
        return static_cast<std::int16_t>(raw);
      case 32:
        return static_cast<std::int32_t>(raw);
      default:
        return static_cast<std::int64_t>(raw);
    }
  }

  void appendCharacter(const Conversion& conversion, std::uint64_t raw) {
    const bool valid = raw <= 0x10FFFF && (raw < 0xD800 || raw > 0xDFFF);
    std::string character;
    appendUTF8(character, valid ? static_cast<char32_t>(raw) : U'\uFFFD');
    appendText(conversion, character);
  }

  void appendDouble(const Conversion& conversion, const FormatArgument& argument) {
    const auto* number = std::get_if<double>(&argument);
    if (number == nullptr) return appendText(conversion, naturalText(argument));
    appendPrinted(conversion, std::string(1, conversion.letter), *number);
  }

  // Precision counts bytes, as in C, but never splits a character.
  void appendText(const Conversion& conversion, std::string_view text) {
    if (conversion.precision >= 0 && text.size() > static_cast<std::size_t>(conversion.precision)) {
      std::size_t end = static_cast<std::size_t>(conversion.precision);
      while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
      text = text.substr(0, end);
    }
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::string padding(width > text.size() ? width - text.size() : 0, ' ');
    const bool left = conversion.flags.find('-') != std::string::npos;
    text_.append(left ? text : padding).append(left ? padding : text);
  }

  template <class T>
  void appendPrinted(const Conversion& conversion, const std::string& letters, T value) {
    std::string format = "%" + conversion.flags;
    if (conversion.width > 0) format += std::to_string(conversion.width);
    if (conversion.precision >= 0) format += '.' + std::to_string(conversion.precision);
    format += letters;
    // The format was assembled above from characters that were checked one by one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(nullptr, 0, format.c_str(), value);
    if (length <= 0) return;
    std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
    std::snprintf(buffer.data(), buffer.size(), format.c_str(), value);
#pragma GCC diagnostic pop
    text_.append(buffer.data(), static_cast<std::size_t>(length));
  }

  static std::string naturalText(const FormatArgument& argument) {
    if (const auto* text = std::get_if<std::string>(&argument)) return *text;
    if (const auto* object = std::get_if<std::shared_ptr<NSObject>>(&argument))
      return descriptionOf(*object);
    if (const auto* number = std::get_if<std::int64_t>(&argument)) return std::to_string(*number);
    if (const auto* natural = std::get_if<std::uint64_t>(&argument))
      return std::to_string(*natural);
    if (const auto* real = std::get_if<double>(&argument)) return shortestText(*real);
    const void* const pointer = std::get<const void*>(argument);
    return pointer == nullptr ? "(null)" : pointerText(pointer);
  }

  // Not the library's "%p", which writes null as "(nil)" here and differently elsewhere.
  static std::string pointerText(const void* pointer) {
    std::array<char, 2 * sizeof(std::uintptr_t)> digits{};
    char* const end = std::to_chars(digits.data(), digits.data() + digits.size(),
                                    reinterpret_cast<std::uintptr_t>(pointer), 16)
                          .ptr;
    return "0x" + std::string(digits.data(), end);
  }

  const std::string_view format_;
  const std::span<const FormatArgument> arguments_;
  std::size_t position_ = 0;
  std::size_t next_ = 0;
  std::string text_;
};

}  // namespace

std::string renderFormat(std::string_view format, std::span<const FormatArgument> arguments) {
  return Renderer(format, arguments).render();
}

}  // namespace platform
