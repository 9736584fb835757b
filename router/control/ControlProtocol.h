// SPDX-License-Identifier: Apache-2.0

// The router's second service: what people and administrators see and do with a running router.
//
// A caller sees what is its own user's; the superuser sees everything. Of other users' sessions a
// caller learns nothing, not even whether there are any.
//
// Threading: a method runs on the queue of the connection that delivers it. A proxy may be used
//   from any thread.
// Ownership: arguments are shared, immutable objects; the receiver may keep them.
// Errors: an NSError of the router's (router/RouterErrors.h). Of a dictionary and an error one is
//   null.
// Order: replies come as they are ready.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/xpc/XPCProtocol.h"

namespace router {

/// Below the router's label, so that its job may offer it.
inline constexpr std::string_view kControlService = "com.quillmar.hideventrouter.control";

class RouterControlProtocol {
 public:
  using Reply = platform::XPCReply<const std::shared_ptr<platform::NSDictionary>&,
                                   const std::shared_ptr<platform::NSError>&>;
  using EndReply = platform::XPCReply<const std::shared_ptr<platform::NSError>&>;

  static const platform::XPCProtocol& protocol();
  virtual ~RouterControlProtocol() = default;

  /// The status (router/RouterStatus.h) with the sessions that the caller may see. What was lost is
  /// theirs and that of those that have ended.
  virtual void statusWithReply(Reply reply) = 0;
  /// All devices, and whether the caller may have each routed (router/control/DeviceListing.h).
  virtual void devicesWithReply(Reply reply) = 0;
  /// Ends the session with that number for good. For a session that is not the caller's own, a
  /// person may be asked first; the reply comes then. Null: it is ended.
  virtual void endSession_reply(std::uint64_t number, EndReply reply) = 0;
  /// When the latest reports of that device reached the router that the calling process itself has
  /// routed (router/ReportArrivals.h), from its first such request on; of several sessions with the
  /// device the youngest's. Other processes of the user are not told: the times of keystrokes are
  /// input.
  virtual void arrivalsOfDevice_reply(std::uint64_t registryEntryID, Reply reply) = 0;
};

}  // namespace router
