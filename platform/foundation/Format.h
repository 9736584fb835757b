// SPDX-License-Identifier: Apache-2.0

// printf-style formatting with objects.
//
// Threading: any thread.
// Errors: never throws for a bad format. A conversion without an argument prints "(missing)"; one
//   whose argument has another type prints the argument in its natural form.
// Order: arguments are taken left to right.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"

namespace platform {

using FormatArgument = std::variant<std::int64_t, std::uint64_t, double, const void*, std::string,
                                    std::shared_ptr<NSObject>>;

template <class T>
FormatArgument formatArgument(const T& value) {
  using V = std::decay_t<T>;
  if constexpr (std::is_same_v<V, std::nullptr_t>) {
    return std::shared_ptr<NSObject>();
  } else if constexpr (std::is_same_v<V, const char*> || std::is_same_v<V, char*>) {
    const char* const text = value;
    if (text == nullptr) return std::shared_ptr<NSObject>();
    return std::string(text);
  } else if constexpr (std::is_convertible_v<V, std::string_view>) {
    return std::string(std::string_view(value));
  } else if constexpr (std::is_floating_point_v<V>) {
    return static_cast<double>(value);
  } else if constexpr (std::is_enum_v<V>) {
    return formatArgument(static_cast<std::underlying_type_t<V>>(value));
  } else if constexpr (std::is_integral_v<V>) {
    if constexpr (std::is_signed_v<V>)
      return static_cast<std::int64_t>(value);
    else
      return static_cast<std::uint64_t>(value);
  } else if constexpr (std::is_pointer_v<V>) {
    return static_cast<const void*>(value);
  } else {
    return std::shared_ptr<NSObject>(value);
  }
}

/// Renders `format` with %d %i %u %x %X %o %c %f %e %g %s %p %@ %%, flags, width, precision and the
/// length modifiers (hh h l ll q z t j). As in C, an unmodified %u, %d or %x takes 32 bits of its
/// argument: 4294967297 prints as 1.
[[nodiscard]] WLHID_EXPORT std::string renderFormat(std::string_view format,
                                                    std::span<const FormatArgument> arguments);

template <class... Args>
[[nodiscard]] std::string stringWithFormat(std::string_view format, const Args&... args) {
  const std::array<FormatArgument, sizeof...(Args)> list{formatArgument(args)...};
  return renderFormat(format, list);
}

}  // namespace platform
