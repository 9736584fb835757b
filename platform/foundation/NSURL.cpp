// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSURL.h"

#include <charconv>
#include <filesystem>
#include <optional>
#include <system_error>

#include "platform/foundation/Format.h"

namespace platform {
namespace {

constexpr std::string_view kScheme = "file:";

bool isAllowedInPath(char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  return std::string_view("-._~!$&'()*+,=:@/").find(c) != std::string_view::npos;
}

std::string percentEncoded(std::string_view path) {
  std::string text;
  for (const char c : path) {
    if (isAllowedInPath(c)) {
      text += c;
      continue;
    }
    text += stringWithFormat("%%%02X", static_cast<unsigned char>(c));
  }
  return text;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      bytes += text[i];
      continue;
    }
    const std::string_view digits = text.substr(i + 1, 2);
    const char* const end = digits.data() + digits.size();
    unsigned byte = 0;
    if (std::from_chars(digits.data(), end, byte, 16).ptr != end || digits.size() != 2)
      return std::nullopt;
    bytes += static_cast<char>(byte);
    i += 2;
  }
  return bytes;
}

bool hasFileScheme(std::string_view text) {
  if (text.size() < kScheme.size()) return false;
  for (std::size_t i = 0; i < kScheme.size(); ++i) {
    const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] + 32) : text[i];
    if (c != kScheme[i]) return false;
  }
  return true;
}

}  // namespace

const NSClass& NSURL::classObject() {
  static const NSClass object{"NSURL", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSURL> NSURL::URLWithString(const std::shared_ptr<NSString>& text) {
  if (!text || text->UTF8String().empty()) return nullptr;
  return std::make_shared<NSURL>(text);
}

std::shared_ptr<NSURL> NSURL::fileURLWithPath(const std::shared_ptr<NSString>& path) {
  if (!path || path->UTF8String().empty()) return nullptr;
  std::error_code nowhere;
  const auto absolute = std::filesystem::absolute(path->UTF8String(), nowhere);
  if (nowhere) return nullptr;
  return URLWithString(NSString::stringWithUTF8("file://" + percentEncoded(absolute.string())));
}

std::shared_ptr<NSString> NSURL::path() const {
  std::string_view rest = text_->UTF8String();
  if (!hasFileScheme(rest)) return nullptr;
  rest.remove_prefix(kScheme.size());
  if (rest.starts_with("//")) {
    const auto slash = rest.find('/', 2);
    rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash);
  }
  const auto decoded = percentDecoded(rest.substr(0, rest.find_first_of("?#")));
  return decoded ? NSString::stringWithUTF8(*decoded) : nullptr;
}

std::strong_ordering NSURL::compareValue(const NSObject& other) const {
  return compare(text_.get(), static_cast<const NSURL&>(other).text_.get());
}

std::string NSURL::description() const {
  return text_->UTF8String();
}

}  // namespace platform
