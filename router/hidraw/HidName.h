// SPDX-License-Identifier: Apache-2.0

// The kernel's name of a HID device: "0003:046D:C52B.001A".
//
// Its last part is a counter that the kernel increases with every HID device that it finds, so as
// long as the system is up it names one device and never another, for every process. Registry entry
// IDs are made of it.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace router {

struct HidName {
  std::uint32_t bus = 0;
  std::uint32_t vendor = 0;
  std::uint32_t product = 0;
  std::uint32_t number = 0;
  friend bool operator==(const HidName&, const HidName&) = default;

  /// Nothing if the kernel would not write it like this, or if the number is too large for an ID.
  [[nodiscard]] static std::optional<HidName> parse(std::string_view text);
  /// From 0x10000 on, and below those of replayed devices.
  [[nodiscard]] std::uint64_t registryEntryID() const;
};

}  // namespace router
