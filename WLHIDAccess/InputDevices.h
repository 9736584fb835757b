// SPDX-License-Identifier: Apache-2.0

// Finding devices: which there are, what they are for, whether this user may have them, and when
// one comes or goes.
//
//   for (const wlhid::Device& device : wlhid::devices({.matching = {{.usagePage = 0x0d}}}))
//     std::cout << std::hex << device.id << ' ' << device.name << '\n';
//
//   wlhid::DeviceWatch watch({.arrived = [](const wlhid::Device& device) { … }});
//
// The router is asked, over its socket; neither udev nor device nodes are needed.
//
// Threading: any thread. The callbacks of one watch come one at a time, on a thread of the
//   library's; devices() and reportDescriptor() wait for the router.
// Ownership: a watch lasts until it is destroyed. From then on no callback begins; one that is
//   running on another thread is waited for.
// Errors: wlhid::Error. A watch has none: it keeps trying, and says in `unavailable` why it cannot
//   know at the moment. A callback must not throw.
// Order: `listed` once, then the changes; nothing is told twice. After a time without a router,
//   what changed meanwhile is told.
// Forks: an object belongs to the process that created it; a child does not use it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "WLHIDAccess/InputWords.h"
#include "platform/foundation/Export.h"

namespace wlhid {

struct Usage {
  std::uint32_t page = 0;
  std::uint32_t id = 0;
  [[nodiscard]] std::string name() const { return usageName(page, id); }
  friend bool operator==(const Usage&, const Usage&) = default;
};

/// Whether a device's input can be secret. A sensitive one can carry what is typed.
enum class DeviceClass {
  None,  ///< on a user's own root there are no classes
  Ordinary,
  Sensitive,
};

/// Whether this user may have a device's input, when it was listed, arrived or changed.
enum class Permission {
  Yes,
  Partly,         ///< the harmless reports of a sensitive device
  Administrator,  ///< one has to agree, each time
  No,
  Unknown,  ///< there was no answer in time
};
/// "yes", "partly", "administrator", "no", "unknown"
[[nodiscard]] WLHID_EXPORT const char* nameOf(Permission permission);
/// "none", "ordinary", "sensitive"
[[nodiscard]] WLHID_EXPORT const char* nameOf(DeviceClass deviceClass);

struct Device {
  std::uint64_t id = 0;  ///< the registry entry ID that the client and `Input` take
  std::string name;
  std::uint32_t bus = 0;  ///< 3 USB, 5 Bluetooth, 0x18 I²C
  std::uint32_t vendor = 0;
  std::uint32_t product = 0;
  std::string source;                      ///< for people: "hidraw0"
  std::string path;                        ///< where it is connected; empty if unknown
  std::string serial;                      ///< its number or address; empty if unknown
  std::optional<std::uint32_t> interface;  ///< which one of a USB device
  std::vector<Usage> collections;          ///< what it is for
  DeviceClass deviceClass = DeviceClass::None;
  std::string reason;                          ///< the rule that decided the class
  std::vector<std::uint32_t> ordinaryReports;  ///< of a sensitive device, its harmless ones
  Permission permission = Permission::Unknown;
  std::string explanation;  ///< of the permission, in words
  friend bool operator==(const Device&, const Device&) = default;
};

/// A device meets it if it has all that is given; usage page and usage are those of one of its
/// collections.
struct Criterion {
  std::optional<std::uint64_t> id = {};
  std::optional<std::uint32_t> vendor = {};
  std::optional<std::uint32_t> product = {};
  std::optional<std::uint32_t> usagePage = {};
  std::optional<std::uint32_t> usage = {};
};
struct DeviceFilter {
  std::vector<Criterion> matching = {};   ///< one has to be met; none: any device
  std::vector<Criterion> excluding = {};  ///< none may be met
};

/// Those that are there now. Throws if the router does not answer in time.
[[nodiscard]] WLHID_EXPORT std::vector<Device> devices(
    const DeviceFilter& filter = {}, std::chrono::milliseconds limit = std::chrono::seconds(10));

/// Of a device that is there now.
[[nodiscard]] WLHID_EXPORT std::vector<std::byte> reportDescriptor(
    std::uint64_t id, std::chrono::milliseconds limit = std::chrono::seconds(10));

struct DeviceWatchHandlers {
  std::function<void(const std::vector<Device>& devices)> listed = {};
  std::function<void(const Device& device)> arrived = {};
  std::function<void(const Device& device)> changed = {};
  std::function<void(const Device& device)> departed = {};
  /// The router cannot be asked at the moment, and why. The watch goes on by itself.
  std::function<void(const std::string& why)> unavailable = {};
};

class WLHID_EXPORT DeviceWatch {
 public:
  explicit DeviceWatch(DeviceWatchHandlers handlers, DeviceFilter filter = {});
  DeviceWatch(const DeviceWatch&) = delete;
  DeviceWatch& operator=(const DeviceWatch&) = delete;
  ~DeviceWatch();

  class Implementation;

 private:
  const std::shared_ptr<Implementation> implementation_;
};

}  // namespace wlhid
