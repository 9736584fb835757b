// SPDX-License-Identifier: Apache-2.0

// Who has sent a request, and whether it is still there.
//
// While a person is asked on its behalf, a caller may hang up or die: then the question is to go
// away, and whatever its answer was, nothing is done for a caller that has gone.
//
// Threading: the loop's thread.
// Ownership: the loop outlives it. It may be kept as long as somebody works for the caller.
// Order: once the request has been answered, nobody is told anything any more.
#pragma once

#include <functional>
#include <memory>

#include "jobd/EventLoop.h"
#include "platform/services/UnixSocket.h"

namespace jobd {

/// The caller's end of a connection, while a request is worked on.
class CallerPresence {
 public:
  /// `socket` must be open until end().
  CallerPresence(EventLoop& loop, int socket) : loop_(loop), socket_(socket) {}

  /// False as soon as it has hung up, even if nobody has been told yet.
  [[nodiscard]] bool isThere() const;
  /// Calls `gone` once when it hangs up; instead of an earlier one. Null: nobody need be told.
  void whenGone(const std::function<void()>& gone);
  /// The request has been answered.
  void end();

 private:
  EventLoop& loop_;
  int socket_;
  EventLoop::Token watch_;
};

struct Caller {
  platform::PeerCredentials credentials;  ///< as the kernel identifies it
  std::shared_ptr<CallerPresence> presence;
};

}  // namespace jobd
