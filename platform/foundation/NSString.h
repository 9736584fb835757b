// SPDX-License-Identifier: Apache-2.0

// Immutable text.
//
// Threading, Ownership: as in NSObject.h.
// Errors: factories return null for bytes that are not UTF-8.
#pragma once

#include <compare>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"

namespace platform {

/// Text, stored as valid UTF-8 (an embedded NUL is a character). Equality compares code units,
/// without normalisation.
class WLHID_EXPORT NSString final : public NSObject {
 public:
  static const NSClass& classObject();
  /// Null if `utf8` is null or not valid UTF-8.
  static std::shared_ptr<NSString> stringWithUTF8String(const char* utf8);
  /// Null if the bytes are not valid UTF-8 (overlong forms and surrogates are invalid).
  static std::shared_ptr<NSString> stringWithUTF8(std::string_view utf8);

  [[nodiscard]] const std::string& UTF8String() const { return text_; }
  /// In UTF-16 code units.
  [[nodiscard]] std::size_t length() const;
  /// Joins with exactly one "/", as a path component.
  [[nodiscard]] std::shared_ptr<NSString> stringByAppendingPathComponent(
      const std::shared_ptr<NSString>& component) const;

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  [[nodiscard]] std::string description() const override { return text_; }
  [[nodiscard]] std::string descriptionWithIndent(std::size_t indent) const override;

  /// Use the factories: the text must be valid UTF-8.
  struct Validated {};
  NSString(Validated, std::string text) : text_(std::move(text)) {}

 protected:
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  const std::string text_;
};

/// Shorthand for the program's own literals, which are valid UTF-8.
[[nodiscard]] WLHID_EXPORT std::shared_ptr<NSString> str(std::string_view literal);

/// Whether the bytes are well-formed UTF-8 (no overlong form, no surrogate, at most U+10FFFF).
[[nodiscard]] WLHID_EXPORT bool isValidUTF8(std::string_view bytes);

}  // namespace platform
