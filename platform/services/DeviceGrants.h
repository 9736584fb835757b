// SPDX-License-Identifier: Apache-2.0

// An administrator's lasting decisions that a user may have a sensitive device routed: a property
// list that the job daemon writes and the router reads.
//
//   { "Grants" = ( { User = 1000; Bus = 3; Vendor = 1133; Product = 50475; Unique = "…";
//                    Name = "…"; }, … ); }
//
// A grant names a kind of device by bus, vendor and product and, if it has Unique, the one device
// that reports this serial number. Name is for people and decides nothing.
//
// Threading: values; any thread.
// Order: that of the file.
// Errors: a file with anything that is not understood grants nothing at all, and says why.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// Below the system's own root.
inline constexpr const char* kGrantDirectory = "var/lib/wlhid";
inline constexpr const char* kGrantFile = "grants.plist";

/// At most so many grants, and so many bytes of a file.
inline constexpr std::size_t kMaximumGrants = 1024;
inline constexpr std::size_t kMaximumGrantFileBytes = std::size_t{1} << 20;

/// What a device says it is.
struct DeviceIdentity {
  std::uint32_t bus = 0;
  std::uint32_t vendor = 0;
  std::uint32_t product = 0;
  std::string unique;  ///< its serial number, or empty
  friend bool operator==(const DeviceIdentity&, const DeviceIdentity&) = default;
};

struct DeviceGrant {
  uid_t user = 0;
  DeviceIdentity device;  ///< without `unique`: every device of that kind
  std::string name;

  [[nodiscard]] bool covers(uid_t caller, const DeviceIdentity& identity) const;
  friend bool operator==(const DeviceGrant&, const DeviceGrant&) = default;
};

/// Nothing, and the reason, if the bytes are not such a list.
[[nodiscard]] std::optional<std::vector<DeviceGrant>> parseDeviceGrants(
    std::span<const std::uint8_t> bytes, std::string* returnReason);

/// Those in the file below an open root; none if there is no file. Throws ServiceError if it cannot
/// be read or understood.
[[nodiscard]] std::vector<DeviceGrant> readDeviceGrants(int rootDirectory);

/// Text that a property list cannot hold is left out of names; such a serial number is refused with
/// ServiceError, as are more than kMaximumGrants.
[[nodiscard]] std::vector<std::uint8_t> encodeDeviceGrants(const std::vector<DeviceGrant>& grants);

}  // namespace platform
