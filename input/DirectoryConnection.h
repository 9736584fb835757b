// SPDX-License-Identifier: Apache-2.0

// A connection to the router's device directory that is made again whenever it ends, with longer
// and longer pauses, and that tells only differences: what has been told before the end is not told
// again.
//
// Threading: on the loop's thread, and so are the events.
// Ownership: the owner ends it. Events may hold the owner weakly only.
// Errors: `lost`, each time.
// Order: after each connection: the differences to what was told (after the first: none), then
//   `listed`, then the changes.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "WLHIDAccess/InputDevices.h"
#include "input/Backoff.h"
#include "input/Loop.h"
#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDDeviceDirectoryProtocols.h"

namespace wlhid {

enum class Loss {
  Refused,  ///< the router has answered with an error
  Closed,   ///< the router has taken leave, or there is none
  Died,     ///< it has ended without taking leave, so others may not have noticed
};

class DirectoryConnection : public std::enable_shared_from_this<DirectoryConnection> {
 public:
  struct Events {
    std::function<void(const std::vector<Device>& devices, bool isFirst)> listed = {};
    std::function<void(const Device& device)> arrived = {};
    std::function<void(const Device& device)> changed = {};
    std::function<void(const Device& device)> departed = {};
    std::function<void(Loss loss, const std::string& why)> lost = {};
  };

  DirectoryConnection(Loop& loop, DeviceFilter filter, Events events)
      : loop_(loop), filter_(std::move(filter)), events_(std::move(events)) {}

  void begin();
  void end();
  /// Lists anew, which tells what has changed without a message.
  void refresh();
  void setFilter(DeviceFilter filter);
  /// Does not wait for the end of a pause.
  void hurry();
  /// As told last.
  [[nodiscard]] const std::map<std::uint64_t, Device>& known() const { return known_; }

 private:
  class Receiver;
  using Weak = std::weak_ptr<DirectoryConnection>;

  void connect();
  void watch();
  void disconnect();
  void fail(Loss loss, const std::string& why);
  void take(const std::vector<Device>& devices);
  void takeOne(const Device& device);
  void takeDeparture(std::uint64_t id);
  /// Runs `work` on the loop's thread if this connection is still the current one then.
  std::function<void(std::function<void(DirectoryConnection&)>)> onLoop();

  Loop& loop_;
  DeviceFilter filter_;
  const Events events_;
  std::shared_ptr<platform::NSXPCConnection> connection_;
  std::shared_ptr<Receiver> receiver_;
  std::uint64_t attempt_ = 0;
  std::uint64_t question_ = 0;  // the latest watch request; the answers to others do not count
  Backoff backoff_;
  std::optional<Loop::Clock::time_point> listedAt_;  // for the first time on this connection
  Loop::Timer pause_ = 0;
  Loop::Timer limit_ = 0;  // of the answer
  bool isEnded_ = false;
  bool hasListed_ = false;
  std::map<std::uint64_t, Device> known_;
};

/// A new connection to the directory, not yet resumed.
[[nodiscard]] std::shared_ptr<platform::NSXPCConnection> connectionToDirectory();

}  // namespace wlhid
