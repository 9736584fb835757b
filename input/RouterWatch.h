// SPDX-License-Identifier: Apache-2.0

// Notices the router's death by an idle connection to its own service, where no connection to a
// device directory does. (A client that was routing keeps the router's death to itself.)
//
// Threading: on the loop's thread, and so is `died`.
// Ownership: the owner's. `died` may hold the owner weakly only.
// Errors: none. A connection that ends is made again, with the pauses of any client.
// Order: `died` comes when the next router has been asked for, and not after the watch has gone.
#pragma once

#include <functional>
#include <memory>

#include "input/Loop.h"
#include "platform/xpc/NSXPCConnection.h"

namespace wlhid {

class RouterWatch : public std::enable_shared_from_this<RouterWatch> {
 public:
  RouterWatch(Loop& loop, std::function<void()> died);
  void begin() { connect(); }

 private:
  class Receiver;

  void connect();
  void reach() const;
  void interrupted();
  std::function<void()> onLoop(void (RouterWatch::*work)());

  Loop& loop_;
  const std::function<void()> died_;
  const std::shared_ptr<Receiver> receiver_;
  std::shared_ptr<platform::NSXPCConnection> connection_;
};

}  // namespace wlhid
