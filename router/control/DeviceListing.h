// SPDX-License-Identifier: Apache-2.0

// The devices as the control service lists them for one caller:
//
//   Devices   array, one dictionary per device:
//     Device             integer   registry entry ID
//     Name, Source       strings   as in router/Devices.h
//     Bus, Vendor, Product   integers   likewise
//     Path, Unique       strings   likewise; missing if unknown
//     Interface          integer   likewise
//     Class              string    "ordinary" or "sensitive"; missing where there are no classes
//     Reason             string    the rule that decided the class; likewise
//     OrdinaryReports    array     on a sensitive device, the IDs of its harmless reports
//     Collections        array     what the device is for: the usages of its outermost collections,
//                                  each a dictionary of the integers UsagePage and Usage; only in
//                                  the device directory
//     Permission         string    may the caller route it now: see DevicePermission
//     Explanation        string    the same in words, and what would be needed
//
// Threading: values; any thread.
// Errors: what another router may have written differently is left out when it is read.
// Order: as the sources list them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "router/Devices.h"
#include "router/ReportDescriptor.h"
#include "router/policy/DeviceClass.h"

namespace router {

enum class DevicePermission {
  Yes,            ///< "yes"
  Partly,         ///< "partly": the harmless reports of a sensitive device
  Administrator,  ///< "administrator": has to agree each time
  No,             ///< "no"
  Unknown,        ///< "unknown": nobody has answered in time
};

struct ListedDevice {
  DeviceDescription device;
  std::optional<DeviceClass> deviceClass{};
  std::string reason{};
  std::set<std::uint8_t> ordinaryReports{};
  std::vector<Usage> collections{};
  DevicePermission permission = DevicePermission::Unknown;
  std::string explanation{};
  friend bool operator==(const ListedDevice&, const ListedDevice&) = default;
};

[[nodiscard]] const char* nameOf(DevicePermission permission);
[[nodiscard]] std::shared_ptr<platform::NSDictionary> dictionaryOf(
    const std::vector<ListedDevice>& devices);
/// One of the array.
[[nodiscard]] std::shared_ptr<platform::NSDictionary> dictionaryOfDevice(
    const ListedDevice& listed);
[[nodiscard]] std::vector<ListedDevice> listedDevicesIn(const platform::NSDictionary& dictionary);

}  // namespace router
