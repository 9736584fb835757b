// SPDX-License-Identifier: Apache-2.0

// The requests of a connection that wait for an answer, and the errors that are due.
//
// Threading: guarded by its connection's lock, except for newID().
// Ownership: handlers are kept until they are taken; none is called or destroyed here.
// Errors: std::bad_alloc from add and fail, which then change nothing.
// Order: takeAll() returns requests in the order of sending, takeFailures() in the order of
//   failing.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "platform/foundation/NSError.h"
#include "platform/xpc/InterfaceTable.h"
#include "platform/xpc/SendBacklog.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform::xpc {

using SharedTable = std::shared_ptr<const InterfaceTable>;

class PendingRequests {
 public:
  struct Request {
    SharedTable table;
    std::size_t method = 0;
    XPCReplyHandler reply;
    SharedErrorHandler errorHandler;
  };
  /// An error handler that is due. The reply is kept with it so that both are released together, on
  /// the queue.
  struct Failure {
    XPCReplyHandler reply;
    SharedErrorHandler errorHandler;
    std::shared_ptr<NSError> error;
  };
  using Requests = std::map<std::uint64_t, Request>;

  /// Any thread, without the lock. IDs start at 1 and increase.
  [[nodiscard]] std::uint64_t newID() { return nextID_.fetch_add(1, std::memory_order_relaxed); }

  void add(std::uint64_t id, Request request) { requests_.emplace(id, std::move(request)); }
  /// Empty if that request is not pending.
  [[nodiscard]] Requests::node_type take(std::uint64_t id) { return requests_.extract(id); }
  void putBack(Requests::node_type request) { requests_.insert(std::move(request)); }
  [[nodiscard]] Requests takeAll() { return std::exchange(requests_, {}); }

  /// Whether an error is due now. Without an error handler the reply stays with the caller, who
  /// releases it without the lock.
  bool fail(XPCReplyHandler& reply, const SharedErrorHandler& errorHandler,
            std::shared_ptr<NSError> error);
  [[nodiscard]] bool hasFailures() const { return !failures_.empty(); }
  [[nodiscard]] std::vector<Failure> takeFailures() { return std::exchange(failures_, {}); }

  [[nodiscard]] bool empty() const { return requests_.empty() && failures_.empty(); }

 private:
  std::atomic<std::uint64_t> nextID_{1};
  Requests requests_;
  std::vector<Failure> failures_;
};

}  // namespace platform::xpc
