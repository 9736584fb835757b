// Which device a person means.
//
// Threading: the main thread. Ownership: values. Order: none.
// Errors: Failure where no device, or more than one, fits.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

/// A registry entry ID, decimal or behind "0x", is taken as it is: whether there is such a device
/// is the router's answer. Anything else must be the name of exactly one device of the current
/// root.
[[nodiscard]] std::uint64_t registryEntryIDOf(const std::string& text);

}  // namespace tool
