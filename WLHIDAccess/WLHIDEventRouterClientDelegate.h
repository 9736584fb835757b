// The object that a client tells about its status and hands its device's input to.
//
// Threading: input and errors arrive on the connection's queue; a status change on whichever thread
//   made it. Two calls of one connection never overlap. A slow delegate delays that connection's
//   further input, and nothing else.
// Ownership: a client holds its delegate weakly. Data and arrays are shared, immutable objects that
//   a delegate may keep.
// Errors: a delegate must not throw on the connection's queue.
// Order: on a failed start: status 3 first, then the error.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"

class WLHIDEventRouterClient;

enum class WLHIDEventRouterStatus : std::uint64_t {
  WLHIDEventRouterStatusNotInstalled = 0,
  WLHIDEventRouterStatusInstalled = 1,
};

enum class WLHIDEventRouterClientStatus : std::uint64_t {
  WLHIDEventRouterClientStatusIdle = 0,               ///< never asked to route so far
  WLHIDEventRouterClientStatusRouterUnavailable = 1,  ///< started, but the router is not installed
  WLHIDEventRouterClientStatusOpening = 2,            ///< the start request is on its way
  WLHIDEventRouterClientStatusFailed = 3,             ///< the router answered with an error
  WLHIDEventRouterClientStatusRouting = 4,            ///< input flows
};
using enum WLHIDEventRouterStatus;
using enum WLHIDEventRouterClientStatus;

/// Derive from this and override what you want, with `override`, which catches a misspelled name.
/// Any pointer to the object will do for setDelegate, and a class that overrides nothing is a
/// delegate too.
///
/// A method that is not overridden does what the client does without a delegate: input is written
/// to the log at level 0, status changes and errors are passed over. An override that does not want
/// a certain call hands it to this class's method, and with that to the same end; one that forwards
/// to another delegate does so by calling it.
class WLHIDEventRouterClientDelegate {
 public:
  virtual ~WLHIDEventRouterClientDelegate() = default;

  /// The client's status has become another one.
  virtual void hidEventRouterClient_clientStatusChangedTo(
      const std::shared_ptr<WLHIDEventRouterClient>& client, WLHIDEventRouterClientStatus status);
  /// The router answered the start request with `error`, unchanged here.
  virtual void hidEventRouterClient_handleError(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      const std::shared_ptr<platform::NSError>& error);
  /// The members are platform::KQHIDDeviceElementValue, in descriptor order.
  virtual void hidEventRouterClient_receivedElementValues(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      const std::shared_ptr<platform::NSArray>& elementValues);
  /// The bytes as the device sent them, with the report ID in front where the device numbers its
  /// reports.
  virtual void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      const std::shared_ptr<platform::NSData>& data, std::uint32_t reportID);
};
