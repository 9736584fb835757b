// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSPropertyListSerialization.h"

#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/PropertyListCoding.h"

namespace platform {
namespace {

constexpr std::int64_t kCannotRead = 3840;
constexpr std::int64_t kCannotWrite = 3851;

std::shared_ptr<NSError> error(std::int64_t code, std::string_view what) {
  auto info = NSDictionary::dictionaryWithEntries({{str(NSLocalizedDescriptionKey), str(what)}});
  return NSError::errorWithDomain_code_userInfo(str(NSCocoaErrorDomain), code, info);
}

std::shared_ptr<NSError> readingError(std::string_view why) {
  return error(kCannotRead, "Not a property list: " + std::string(why));
}

template <class T>
void store(T* where, T value) {
  if (where != nullptr) *where = std::move(value);
}

std::shared_ptr<NSObject> objectOf(const NSData& data) {
  if (data.length() == 0) throw PropertyListFault("no data");
  if (data.length() > kPropertyListBytes) throw PropertyListFault("larger than 64 MiB");
  if (isBinaryPropertyList(data.span())) return objectFromBinaryPropertyList(data.span());
  return objectFromXMLPropertyList({reinterpret_cast<const char*>(data.bytes()), data.length()});
}

}  // namespace

void checkPropertyListSize(const std::string& text) {
  if (text.size() > kPropertyListBytes) throw PropertyListFault("larger than 64 MiB");
}

std::shared_ptr<NSObject> readPropertyList(const NSData& data, NSPropertyListFormat* returnFormat,
                                           std::shared_ptr<NSError>* returnError) {
  store<std::shared_ptr<NSError>>(returnError, nullptr);
  try {
    auto object = objectOf(data);
    store(returnFormat, isBinaryPropertyList(data.span()) ? NSPropertyListFormat::Binary
                                                          : NSPropertyListFormat::XML);
    return object;
  } catch (const PropertyListFault& fault) {
    store(returnError, readingError(fault.what()));
    return nullptr;
  }
}

std::shared_ptr<NSObject> NSPropertyListSerialization::propertyListWithData_options_format_error(
    const std::shared_ptr<NSData>& data, unsigned long /*options*/,
    NSPropertyListFormat* returnFormat, std::shared_ptr<NSError>* returnError) {
  if (data)
    return foundationProvider().load()->propertyListWithData(data, returnFormat, returnError);
  store(returnError, readingError("no data"));
  return nullptr;
}

std::shared_ptr<NSData> NSPropertyListSerialization::dataWithPropertyList_format_error(
    const std::shared_ptr<NSObject>& object, NSPropertyListFormat format,
    std::shared_ptr<NSError>* returnError) {
  store<std::shared_ptr<NSError>>(returnError, nullptr);
  try {
    if (!object) throw PropertyListFault("no object");
    const std::string written = format == NSPropertyListFormat::XML ? XMLPropertyList(*object)
                                                                    : binaryPropertyList(*object);
    return NSData::dataWithBytes(
        {reinterpret_cast<const std::uint8_t*>(written.data()), written.size()});
  } catch (const PropertyListFault& fault) {
    store(returnError,
          error(kCannotWrite, std::string("Cannot write the property list: ") + fault.what()));
    return nullptr;
  }
}

}  // namespace platform
