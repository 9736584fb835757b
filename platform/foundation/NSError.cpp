#include "platform/foundation/NSError.h"

namespace platform {
namespace {

/// No user info and an empty one say the same.
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

std::string NSError::description() const {
  const NSDictionary* info = contents(userInfo_);
  const auto reason =
      info ? objectCast<NSString>(info->objectForKey(NSLocalizedDescriptionKey)) : nullptr;
  std::string text = "Error Domain=" + descriptionOf(domain_) + " Code=" + std::to_string(code_) +
                     " \"" + descriptionOf(reason) + "\"";
  if (info == nullptr) return text;
  std::string_view separator = " UserInfo={";
  for (const auto& [key, value] : info->entries()) {
    text.append(separator).append(key->description()).append("=").append(value->description());
    separator = ", ";
  }
  return text + "}";
}

}  // namespace platform
