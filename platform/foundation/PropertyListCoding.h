// The two encodings of property lists, by way of libplist, with what libplist cannot be trusted
// with kept from it. Within the foundation only; everybody else goes through
// NSPropertyListSerialization.
//
// Threading: pure functions. Ownership: the caller's.
// Errors: null or false, and an error in NSCocoaErrorDomain where asked for.
// Order: dictionaries keep the order of the input.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSPropertyListSerialization.h"

namespace platform {

inline constexpr std::size_t kPropertyListDepth = 512;
inline constexpr std::size_t kPropertyListBytes = std::size_t{64} << 20;
/// Objects after shared references have been written out; a binary list of a few hundred bytes can
/// ask for 2^64.
inline constexpr std::size_t kPropertyListObjects = std::size_t{4} << 20;

/// The machine's reader behind propertyListWithData:options:format:error:.
[[nodiscard]] std::shared_ptr<NSObject> readPropertyList(const NSData& data,
                                                         NSPropertyListFormat* returnFormat,
                                                         std::shared_ptr<NSError>* returnError);

/// NSCocoaErrorDomain 3840 (cannot read) or 3851 (cannot write) with `what` as localized
/// description.
[[nodiscard]] std::shared_ptr<NSError> propertyListError(std::int64_t code, std::string_view what);

[[nodiscard]] bool isBinaryPropertyList(std::span<const std::uint8_t> bytes);

/// Empty, or why libplist must not see these bytes: a table or reference out of range, a cycle,
/// deeper than kPropertyListDepth, or more than kPropertyListObjects once written out.
[[nodiscard]] std::string faultOfBinaryPropertyList(std::span<const std::uint8_t> bytes);
[[nodiscard]] std::string faultOfXMLPropertyList(std::string_view text);

}  // namespace platform
