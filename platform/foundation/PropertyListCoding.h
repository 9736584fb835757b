// SPDX-License-Identifier: Apache-2.0

// The two encodings of property lists. Only for use inside the foundation; other code uses
// NSPropertyListSerialization.
//
// Threading: any thread.
// Errors: a PropertyListFault that says what is wrong; nothing is lost silently.
// Order: dictionaries keep their order both ways.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSPropertyListSerialization.h"

namespace platform {

/// The maximum nesting of containers.
inline constexpr std::size_t kPropertyListDepth = 512;
inline constexpr std::size_t kPropertyListBytes = std::size_t{64} << 20;
/// Objects, each counted as often as it is referenced: a binary list of a few hundred bytes can
/// represent 2^64 objects, and code that walks the result would visit them all.
inline constexpr std::size_t kPropertyListObjects = std::size_t{1} << 20;

/// Why something is not a property list or cannot be written as one; `what()` is a phrase.
class PropertyListFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[nodiscard]] bool isBinaryPropertyList(std::span<const std::uint8_t> bytes);

/// Neither returns null.
[[nodiscard]] std::shared_ptr<NSObject> objectFromBinaryPropertyList(
    std::span<const std::uint8_t> bytes);
[[nodiscard]] std::shared_ptr<NSObject> objectFromXMLPropertyList(std::string_view text);

[[nodiscard]] std::string binaryPropertyList(const NSObject& root);
[[nodiscard]] std::string XMLPropertyList(const NSObject& root);

/// Throws if `text` exceeds kPropertyListBytes, so that nothing is written that could not be read
/// again.
void checkPropertyListSize(const std::string& text);

/// Whether a property list can contain the date: the years 0 to 9999.
[[nodiscard]] bool isPropertyListDate(double secondsSinceReferenceDate);
/// "2026-11-21T04:01:39Z"; fractions of a second are dropped.
[[nodiscard]] std::string propertyListDateText(double secondsSinceReferenceDate);
[[nodiscard]] std::optional<double> propertyListDate(std::string_view text);

/// Whether an XML document may contain the character, escaped or not.
[[nodiscard]] constexpr bool isXMLCharacter(char32_t c) {
  return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c != 0xFFFE && c != 0xFFFF);
}

/// The machine's implementation of propertyListWithData:options:format:error:.
[[nodiscard]] std::shared_ptr<NSObject> readPropertyList(const NSData& data,
                                                         NSPropertyListFormat* returnFormat,
                                                         std::shared_ptr<NSError>* returnError);

}  // namespace platform
