// SPDX-License-Identifier: Apache-2.0

// Receives a client's status changes, errors and device input.
//
// Threading: input and errors arrive on the connection's queue, a status change on the thread that
//   made it. Calls from one connection never overlap. A slow delegate delays only that connection's
//   further input.
// Ownership: a client holds its delegate weakly. Data and arrays are shared, immutable objects that
//   a delegate may keep.
// Errors: a delegate must not throw on the connection's queue.
// Order: when a start fails, status 3 comes first, then the error.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"

class WLHIDEventRouterClient;

enum class WLHIDEventRouterStatus : std::uint64_t {
  WLHIDEventRouterStatusNotInstalled = 0,
  WLHIDEventRouterStatusInstalled = 1,
};

enum class WLHIDEventRouterClientStatus : std::uint64_t {
  WLHIDEventRouterClientStatusIdle = 0,               ///< not started yet
  WLHIDEventRouterClientStatusRouterUnavailable = 1,  ///< started, but the router is not installed
  WLHIDEventRouterClientStatusOpening = 2,            ///< the start request is pending
  WLHIDEventRouterClientStatusFailed = 3,             ///< the router answered with an error
  WLHIDEventRouterClientStatusRouting = 4,            ///< input is being delivered
};
using enum WLHIDEventRouterStatus;
using enum WLHIDEventRouterClientStatus;

/// Derive from this class and override the methods you need. Write `override`: it catches a
/// misspelled name. A class that overrides nothing is a valid delegate, and setDelegate takes any
/// shared pointer that converts to this class.
///
/// A method that is not overridden does what the client does without a delegate: input is logged at
/// level 0; status changes and errors are ignored. An override can decline a call by passing it to
/// this class's method, or forward it by calling another delegate.
class WLHID_EXPORT WLHIDEventRouterClientDelegate {
 public:
  virtual ~WLHIDEventRouterClientDelegate() = default;

  /// The client's status has changed to `status`.
  virtual void hidEventRouterClient_clientStatusChangedTo(
      const std::shared_ptr<WLHIDEventRouterClient>& client, WLHIDEventRouterClientStatus status);
  /// The router answered the start request with `error`, which is passed on unchanged.
  virtual void hidEventRouterClient_handleError(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      const std::shared_ptr<platform::NSError>& error);
  /// The members are platform::KQHIDDeviceElementValue, in descriptor order.
  virtual void hidEventRouterClient_receivedElementValues(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      const std::shared_ptr<platform::NSArray>& elementValues);
  /// The bytes as the device sent them, starting with the report ID if the device numbers its
  /// reports.
  virtual void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      const std::shared_ptr<platform::NSData>& data, std::uint32_t reportID);
};
