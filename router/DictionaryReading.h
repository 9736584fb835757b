// SPDX-License-Identifier: Apache-2.0

// Values of a property list that somebody else has written.
//
// Threading: any thread.
// Errors: a value that is missing or of another type is empty.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace router {

[[nodiscard]] inline std::optional<std::uint64_t> numberIn(const platform::NSDictionary& dictionary,
                                                           std::string_view key) {
  const auto value = platform::objectCast<platform::NSNumber>(dictionary.objectForKey(key));
  return value == nullptr ? std::nullopt : std::optional(value->unsignedLongLongValue());
}

[[nodiscard]] inline std::string textIn(const platform::NSDictionary& dictionary,
                                        std::string_view key) {
  const auto text = platform::objectCast<platform::NSString>(dictionary.objectForKey(key));
  return text == nullptr ? std::string() : text->UTF8String();
}

}  // namespace router
