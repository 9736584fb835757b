// SPDX-License-Identifier: Apache-2.0

// The two message protocols between an application and the router's device directory, which tells
// it which devices there are, and when one comes, changes or goes.
//
// A device is a dictionary (docs/wire-protocol.md, "The device directory"). A watch begins with the
// list in its reply; from then on each change is one message, and nothing is told twice or left
// out between the two. A connection has one watch; the next one takes its place.
//
// Threading: a method runs on the queue of the connection that delivers it. A proxy may be used
//   from any thread.
// Ownership: arguments are shared, immutable objects; the receiver may keep them.
// Errors: an NSError in the domain HIDEventRouterDomain. Of a result and an error one is null.
// Order: the list comes before the first change.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/xpc/XPCProtocol.h"

/// Below the router's label, so that its job may offer it.
inline constexpr std::string_view WLHIDDeviceDirectoryLabel = "com.quillmar.hideventrouter.devices";

/// The values of a device's key `Permission`. Each end has an enumeration of them in this order.
inline constexpr std::array WLHIDDevicePermissions{"yes", "partly", "administrator", "no",
                                                   "unknown"};

/// Implemented by the router, called by an application.
class WLHIDDeviceDirectoryProtocol {
 public:
  using WatchReply = platform::XPCReply<const std::shared_ptr<platform::NSArray>&,
                                        const std::shared_ptr<platform::NSError>&>;
  using DescriptorReply = platform::XPCReply<const std::shared_ptr<platform::NSData>&,
                                             const std::shared_ptr<platform::NSError>&>;

  static const platform::XPCProtocol& protocol();
  virtual ~WLHIDDeviceDirectoryProtocol() = default;

  /// Begins a watch and lists what is there. `matching` and `excluding` are arrays of criteria, or
  /// null: a device counts if it meets one of the former (null or empty: any) and none of the
  /// latter.
  virtual void watchDevicesMatching_excluding_reply(
      const std::shared_ptr<platform::NSArray>& matching,
      const std::shared_ptr<platform::NSArray>& excluding, WatchReply reply) = 0;
  virtual void reportDescriptorOfDevice_reply(std::uint64_t registryEntryID,
                                              DescriptorReply reply) = 0;
};

/// Implemented by an application, called by the router. All messages are one-way.
class WLHIDDeviceDirectoryClientProtocol {
 public:
  static const platform::XPCProtocol& protocol();
  virtual ~WLHIDDeviceDirectoryClientProtocol() = default;

  virtual void deviceArrived(const std::shared_ptr<platform::NSDictionary>& device) = 0;
  /// What is known of a listed device is different now.
  virtual void deviceChanged(const std::shared_ptr<platform::NSDictionary>& device) = 0;
  virtual void deviceDeparted(std::uint64_t registryEntryID) = 0;
};
