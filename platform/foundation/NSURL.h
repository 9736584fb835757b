// SPDX-License-Identifier: Apache-2.0

// A uniform resource locator, stored as text.
//
// Threading, Ownership, Errors, Order: as in NSObject.h.
#pragma once

#include <compare>
#include <memory>
#include <string>
#include <utility>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"

namespace platform {

class WLHID_EXPORT NSURL final : public NSObject {
 public:
  static const NSClass& classObject();
  /// Null for a null or empty string. The text is kept unchanged.
  static std::shared_ptr<NSURL> URLWithString(const std::shared_ptr<NSString>& text);
  /// "file://" and the path, with characters that a URL does not allow percent-encoded. A relative
  /// path is resolved against the current working directory. Null for a null or empty path.
  static std::shared_ptr<NSURL> fileURLWithPath(const std::shared_ptr<NSString>& path);

  [[nodiscard]] const std::shared_ptr<NSString>& absoluteString() const { return text_; }
  /// The decoded path of a file URL; null for other schemes.
  [[nodiscard]] std::shared_ptr<NSString> path() const;

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  [[nodiscard]] std::string description() const override;

  explicit NSURL(std::shared_ptr<NSString> text) : text_(std::move(text)) {}

 protected:
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  const std::shared_ptr<NSString> text_;
};

}  // namespace platform
