// Property lists, XML and binary, to and from objects.
//
// Threading: any thread.
// Ownership: results belong to the caller.
// Errors: bytes that are no property list give null and, where asked for, an error in
//   NSCocoaErrorDomain (3840); so does one of more than 64 MiB, more than 2^20 objects (each
//   counted as often as it is referred to) or more than 512 containers within containers. An object
//   that cannot be written gives 3851. The localized description says why.
// Order: dictionaries keep their order both ways.
#pragma once

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"

namespace platform {

enum class NSPropertyListFormat { XML, Binary };

class NSPropertyListSerialization {
 public:
  /// `options` is 0 (immutable containers). Goes through the foundation provider. `returnError` may
  /// be null.
  static std::shared_ptr<NSObject> propertyListWithData_options_format_error(
      const std::shared_ptr<NSData>& data, unsigned long options,
      NSPropertyListFormat* returnFormat, std::shared_ptr<NSError>* returnError);
  /// Null, with an error, for an object that no property list can hold. XML holds no fractions of a
  /// second, which are cut off, and no control characters, which are an error; binary holds both.
  static std::shared_ptr<NSData> dataWithPropertyList_format_error(
      const std::shared_ptr<NSObject>& object, NSPropertyListFormat format,
      std::shared_ptr<NSError>* returnError);
};

}  // namespace platform
