// The two encodings of property lists. Within the foundation only; everybody else goes through
// NSPropertyListSerialization.
//
// Threading: pure functions. Ownership: the caller's.
// Errors: a PropertyListFault that says what is wrong; nothing that is read or written is lost
//   silently.
// Order: dictionaries keep their order both ways.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSPropertyListSerialization.h"

namespace platform {

/// Containers within containers.
inline constexpr std::size_t kPropertyListDepth = 512;
inline constexpr std::size_t kPropertyListBytes = std::size_t{64} << 20;
/// Objects, each counted as often as it is referred to: a binary list of a few hundred bytes can
/// stand for 2^64, and whoever walks the result would walk them all.
inline constexpr std::size_t kPropertyListObjects = std::size_t{1} << 20;

/// Why something is no property list, or cannot become one; `what()` completes a sentence.
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

/// Throws where `text` has outgrown kPropertyListBytes: what could not be read again is not
/// written.
void checkPropertyListSize(const std::string& text);

/// Whether a property list can hold the date: the years 0 to 9999.
[[nodiscard]] bool isPropertyListDate(double secondsSinceReferenceDate);
/// "2026-11-21T04:01:39Z"; a fraction of a second is cut off.
[[nodiscard]] std::string propertyListDateText(double secondsSinceReferenceDate);
[[nodiscard]] std::optional<double> propertyListDate(std::string_view text);

/// Whether an XML document may contain the character at all, escaped or not.
[[nodiscard]] constexpr bool isXMLCharacter(char32_t c) {
  return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c != 0xFFFE && c != 0xFFFF);
}

/// The machine's reader behind propertyListWithData:options:format:error:.
[[nodiscard]] std::shared_ptr<NSObject> readPropertyList(const NSData& data,
                                                         NSPropertyListFormat* returnFormat,
                                                         std::shared_ptr<NSError>* returnError);

}  // namespace platform
