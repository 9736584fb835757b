// SPDX-License-Identifier: Apache-2.0

// A connection layer whose peer is controlled by the test: the real one with a router in this
// process, or the scripted one.
//
// Threading: commands come from the test's thread; what they cause runs on the connection's queue,
//   in both layers a thread of its own.
// Ownership: the test holds the connections, the layer its peers.
// Order: commands take effect in order.
#pragma once

#include <memory>
#include <string>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSError.h"
#include "platform/xpc/NSXPCConnection.h"

namespace test {

class Layer {
 public:
  virtual ~Layer() = default;

  /// To the router's service, which exists. Not resumed.
  [[nodiscard]] virtual std::shared_ptr<platform::NSXPCConnection> makeConnection() = 0;
  /// Waits until a start request has arrived that is not answered yet.
  [[nodiscard]] virtual bool waitForRequest() = 0;
  virtual void peerReplies(std::shared_ptr<platform::NSError> error) = 0;
  virtual void peerDropsReply() = 0;
  /// On the newest connection, with an empty report.
  virtual void peerSendsReport(std::uint32_t reportID) = 0;
  /// On the newest connection.
  virtual void peerSendsElementValues(std::shared_ptr<platform::NSArray> values) = 0;
  /// On all connections.
  virtual void peerSaysFarewell() = 0;
  virtual void peerCrashes() = 0;
  /// Runs what the code under test has started itself: an invalidation, the release of a
  /// connection, or a message that cannot be sent.
  virtual void settle() = 0;
};

[[nodiscard]] std::unique_ptr<Layer> realLayer();
[[nodiscard]] std::unique_ptr<Layer> scriptedLayer();

}  // namespace test
