// SPDX-License-Identifier: Apache-2.0

// Accepts callers on a listener of its own, as many as it has room for, and keeps a session for
// each. What the sessions answer is for the service made from this.
//
// Threading: any thread.
// Ownership: shares the parts of the router that it shows; holds each connection until it ends. A
//   connection keeps the router in use.
// Order: after stop() no connection is accepted, and those that exist are closed.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <set>

#include "platform/xpc/NSXPCListener.h"
#include "router/Quotas.h"
#include "router/RouterLimits.h"
#include "router/requests/RequestSession.h"

namespace router {

class RequestService : public platform::NSXPCListenerDelegate,
                       public std::enable_shared_from_this<RequestService> {
 public:
  struct Limits {
    std::size_t connections = 0;
    std::size_t connectionsPerUser = 0;
    Rate requests;
    Rate requestsPerUser;
  };

  RequestService(std::shared_ptr<platform::NSXPCListener> listener, ServiceParts parts,
                 const Limits& limits);
  RequestService(const RequestService&) = delete;
  RequestService& operator=(const RequestService&) = delete;

  void resume();
  void stop();

  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>& listener,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override;

 private:
  /// A session for that peer, with its interfaces set on the connection.
  virtual std::shared_ptr<RequestSession> sessionFor(RequestPeer peer) = 0;
  /// No session is made any more; those that exist are about to be closed.
  virtual void stopServing() {}

  bool keep(const std::shared_ptr<RequestSession>& session);
  void ended(const std::shared_ptr<RequestSession>& session);

  const std::shared_ptr<platform::NSXPCListener> listener_;
  const std::shared_ptr<const ServiceParts> parts_;
  const std::shared_ptr<TurnQuota> requests_;
  const Limits limits_;
  std::mutex mutex_;
  bool isStopped_ = false;
  std::set<std::shared_ptr<RequestSession>> sessions_;
};

}  // namespace router
