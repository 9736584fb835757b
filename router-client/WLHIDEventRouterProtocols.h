// SPDX-License-Identifier: Apache-2.0

// The two message protocols between a client object and the HID event router.
//
// Threading: a method runs on the queue of the connection that delivers it. A proxy may be used
//   from any thread.
// Ownership: arguments are shared, immutable objects; the receiver may keep them.
// Errors: the reply to a start request is an NSError or null; the other messages have no reply.
// Order: messages of one connection arrive in the order in which they were sent.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/xpc/XPCProtocol.h"

/// Implemented by the router, called by the client.
class WLHIDEventRouterProtocol {
 public:
  using StartReply = std::function<void(const std::shared_ptr<platform::NSError>&)>;

  static const platform::XPCProtocol& protocol();
  virtual ~WLHIDEventRouterProtocol() = default;

  /// Opens the device with this registry entry ID and routes its input to the connection's client.
  /// `reply` is called once: with null when routing has started, otherwise with the reason why not.
  /// The dictionaries may be null.
  virtual void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tagDictionary,
      const std::shared_ptr<platform::NSDictionary>& typeDictionary, StartReply reply) = 0;
  /// Stops sending input on this connection. One-way.
  virtual void stopRoutingService() = 0;
};

/// Implemented by a client, called by the router. Both messages are one-way.
class WLHIDEventRouterClientProtocol {
 public:
  static const platform::XPCProtocol& protocol();
  virtual ~WLHIDEventRouterClientProtocol() = default;

  /// One input report as the device sent it, including the report ID byte if it has one.
  virtual void receivedData_forReportID(const std::shared_ptr<platform::NSData>& data,
                                        std::uint32_t reportID) = 0;
  /// The KQHIDDeviceElementValues of one report and nothing else. On the wire an NSMutableArray.
  virtual void receivedElementValues(const std::shared_ptr<platform::NSArray>& elementValues) = 0;
};
