// SPDX-License-Identifier: Apache-2.0

// Reads and writes property lists, XML and binary.
//
// Threading: any thread.
// Errors: bytes that are not a property list give null and, if requested, an error in
//   NSCocoaErrorDomain (3840); so does a list of more than 64 MiB, more than 2^20 objects (each
//   counted as often as it is referenced) or more than 512 levels of nesting. An object that cannot
//   be written gives 3851. The localized description says why.
// Order: dictionaries keep their order both ways.
#pragma once

#include <memory>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"

namespace platform {

enum class NSPropertyListFormat { XML, Binary };

class NSPropertyListSerialization {
 public:
  /// `options` is 0 (immutable containers). Goes through the foundation provider. `returnError` may
  /// be null.
  static std::shared_ptr<NSObject> propertyListWithData_options_format_error(
      const std::shared_ptr<NSData>& data, unsigned long options,
      NSPropertyListFormat* returnFormat, std::shared_ptr<NSError>* returnError);
  /// Null, with an error, for an object that a property list cannot contain. In XML, fractions of a
  /// second are dropped and control characters are an error; binary supports both.
  static std::shared_ptr<NSData> dataWithPropertyList_format_error(
      const std::shared_ptr<NSObject>& object, NSPropertyListFormat format,
      std::shared_ptr<NSError>* returnError);
};

}  // namespace platform
