// SPDX-License-Identifier: Apache-2.0

// The header pattern as interpreted by ICU's regular expressions, and the excerpt made from it in
// the simplest way: the whole text, split, line by line.
//
// Threading: one thread per oracle.
// Errors: isHeader is empty if ICU gives up on a line; all other errors throw.
#pragma once

#include <unicode/uregex.h>
#include <unicode/ustring.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace testsupport {

class HeaderOracle {
 public:
  static constexpr std::string_view kPattern =
      "^([A-Za-z]{3}(\\s){1,2}([0-9]{1,2})(\\s){1})([0-9]{1,2})\\:([0-9]{1,2})\\:([0-9]{1,2})"
      "(\\s){1}(\\S){1,}(\\s){1}([A-Za-z\\.\\-\\_]){1,}\\[[0-9]{1,}\\]"
      "([\\sA-Za-z0-9\\(\\)\\[\\]\\.]{0,})\\:";

  HeaderOracle() {
    UErrorCode status = U_ZERO_ERROR;
    const auto text = utf16(kPattern);
    expression_.reset(uregex_open(text.data(), static_cast<std::int32_t>(text.size()),
                                  UREGEX_CASE_INSENSITIVE, nullptr, &status));
    require(status);
  }

  /// Searches valid UTF-8 from its first character; empty if ICU gives up.
  std::optional<bool> isHeader(std::string_view line) {
    UErrorCode status = U_ZERO_ERROR;
    const auto text = utf16(line);
    uregex_setText(expression_.get(), text.data(), static_cast<std::int32_t>(text.size()), &status);
    require(status);
    const bool found = uregex_find(expression_.get(), 0, &status) != 0;
    if (status == U_REGEX_STACK_OVERFLOW || status == U_REGEX_TIME_OUT) return std::nullopt;
    require(status);
    return found;
  }

  std::string excerpt(std::string_view log, std::string_view label) {
    std::string kept;
    bool keep = false;
    bool any = false;
    for (const auto line : split(log)) {
      if (isHeader(line).value()) keep = line.find(label) != std::string_view::npos;
      if (!keep) continue;
      if (any) kept += '\n';
      kept += line;
      any = true;
    }
    return kept;
  }

  static std::vector<std::string_view> split(std::string_view text) {
    std::vector<std::string_view> lines;
    for (;;) {
      const std::size_t end = text.find('\n');
      lines.push_back(text.substr(0, end));
      if (end == std::string_view::npos) return lines;
      text.remove_prefix(end + 1);
    }
  }

 private:
  struct Close {
    void operator()(URegularExpression* expression) const { uregex_close(expression); }
  };

  static void require(UErrorCode status) {
    if (U_FAILURE(status)) throw std::runtime_error(u_errorName(status));
  }

  /// At least one unit, because ICU does not accept a null text.
  static std::u16string utf16(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    std::u16string units(text.size() + 1, u'\0');
    std::int32_t length = 0;
    u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), &length, text.data(),
                  static_cast<std::int32_t>(text.size()), &status);
    require(status);
    units.resize(static_cast<std::size_t>(length));
    return units;
  }

  std::unique_ptr<URegularExpression, Close> expression_;
};

}  // namespace testsupport
