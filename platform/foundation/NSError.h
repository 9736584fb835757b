// SPDX-License-Identifier: Apache-2.0

// Errors as objects: a domain, a code and further information.
//
// Threading, Ownership: as in NSObject.h.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"

namespace platform {

inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr std::string_view NSOSStatusErrorDomain = "NSOSStatusErrorDomain";
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view NSLocalizedDescriptionKey = "NSLocalizedDescription";

class WLHID_EXPORT NSError final : public NSObject {
 public:
  static const NSClass& classObject();
  /// `userInfo` may be null.
  static std::shared_ptr<NSError> errorWithDomain_code_userInfo(
      const std::shared_ptr<NSString>& domain, std::int64_t code,
      const std::shared_ptr<NSDictionary>& userInfo);

  [[nodiscard]] const std::shared_ptr<NSString>& domain() const { return domain_; }
  [[nodiscard]] std::int64_t code() const { return code_; }
  /// Null if the error was created without it.
  [[nodiscard]] const std::shared_ptr<NSDictionary>& userInfo() const { return userInfo_; }

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  /// A message for a person: the user info's, else the known text for domain and code, else a
  /// sentence that names the two. Never null.
  [[nodiscard]] std::shared_ptr<NSString> localizedDescription() const;
  /// `Error Domain=D Code=-1 "…"`, with the user info's message or the known text in the quotes,
  /// "(null)" without either, followed by ` UserInfo={key=value, key=value}` if the user info has
  /// entries.
  [[nodiscard]] std::string description() const override;

  NSError(std::shared_ptr<NSString> domain, std::int64_t code,
          std::shared_ptr<NSDictionary> userInfo)
      : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

 protected:
  /// No user info and empty user info are the same.
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  [[nodiscard]] std::shared_ptr<NSString> words() const;

  const std::shared_ptr<NSString> domain_;
  const std::int64_t code_;
  const std::shared_ptr<NSDictionary> userInfo_;
};

}  // namespace platform
