// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSString.h"

#include <cstring>

#include "platform/foundation/Text.h"
#include "platform/foundation/UTF8Validator.h"

namespace platform {
namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

bool isValidUTF8(std::string_view bytes) {
  UTF8Validator validator;
  return validator.accept(bytes) && validator.isComplete();
}

const NSClass& NSString::classObject() {
  static const NSClass object{"NSString", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSString> NSString::stringWithUTF8String(const char* utf8) {
  return utf8 == nullptr ? nullptr : stringWithUTF8(std::string_view(utf8, std::strlen(utf8)));
}

std::shared_ptr<NSString> NSString::stringWithUTF8(std::string_view utf8) {
  if (!isValidUTF8(utf8)) return nullptr;
  return std::make_shared<NSString>(Validated{}, std::string(utf8));
}

std::size_t NSString::length() const {
  std::size_t units = 0;
  for (const char c : text_) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) != 0x80) ++units;
    if (byte >= 0xF0) ++units;
  }
  return units;
}

std::shared_ptr<NSString> NSString::stringByAppendingPathComponent(
    const std::shared_ptr<NSString>& component) const {
  std::string path(withoutTrailingSlashes(text_));
  std::string_view rest = component ? std::string_view(component->text_) : std::string_view();
  if (!path.empty()) rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
  if (!path.empty() && path.back() != '/' && !rest.empty()) path += '/';
  path += withoutTrailingSlashes(rest);
  return std::make_shared<NSString>(Validated{}, std::move(path));
}

std::strong_ordering NSString::compareValue(const NSObject& other) const {
  return text_ <=> static_cast<const NSString&>(other).text_;
}

std::string NSString::descriptionWithIndent(std::size_t) const {
  return quotedWhereNeeded(text_);
}

std::shared_ptr<NSString> str(std::string_view literal) {
  return NSString::stringWithUTF8(literal);
}

}  // namespace platform
