// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSError.h"

#include "platform/foundation/ErrorTexts.h"

namespace platform {
namespace {

/// No user info and empty user info are the same.
const NSDictionary* contents(const std::shared_ptr<NSDictionary>& userInfo) {
  return userInfo && userInfo->count() > 0 ? userInfo.get() : nullptr;
}

}  // namespace

const NSClass& NSError::classObject() {
  static const NSClass object{"NSError", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSError> NSError::errorWithDomain_code_userInfo(
    const std::shared_ptr<NSString>& domain, std::int64_t code,
    const std::shared_ptr<NSDictionary>& userInfo) {
  return std::make_shared<NSError>(domain, code, userInfo);
}

std::strong_ordering NSError::compareValue(const NSObject& other) const {
  const auto& error = static_cast<const NSError&>(other);
  if (code_ != error.code_) return code_ <=> error.code_;
  const auto domains = compare(domain_.get(), error.domain_.get());
  return domains != 0 ? domains : compare(contents(userInfo_), contents(error.userInfo_));
}

/// The user info's description or the known text; null without either.
std::shared_ptr<NSString> NSError::words() const {
  const NSDictionary* info = contents(userInfo_);
  auto own = info ? objectCast<NSString>(info->objectForKey(NSLocalizedDescriptionKey)) : nullptr;
  if (own || !domain_) return own;
  const auto known = textOfError(domain_->UTF8String(), code_);
  return known ? NSString::stringWithUTF8(*known) : nullptr;
}

std::shared_ptr<NSString> NSError::localizedDescription() const {
  if (auto known = words()) return known;
  return str("The operation failed; only the error code is known: " + descriptionOf(domain_) + " " +
             std::to_string(code_) + ".");
}

std::string NSError::description() const {
  std::string text = "Error Domain=" + descriptionOf(domain_) + " Code=" + std::to_string(code_) +
                     " \"" + descriptionOf(words()) + "\"";
  const NSDictionary* info = contents(userInfo_);
  if (info == nullptr) return text;
  std::string_view separator = " UserInfo={";
  for (const auto& [key, value] : info->entries()) {
    text.append(separator).append(key->description()).append("=").append(value->description());
    separator = ", ";
  }
  return text + "}";
}

}  // namespace platform
