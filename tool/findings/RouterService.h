// SPDX-License-Identifier: Apache-2.0

// What a running router says about itself, and what it does for the caller, over its control
// service. Where the system listens for the router, asking starts it.
//
// Threading: the main thread; each call waits for the reply.
// Errors: Failure, if there is no router, it does not answer in time, or it refuses.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/xpc/NSXPCConnection.h"
#include "router/ReportArrivals.h"
#include "router/RouterStatus.h"
#include "router/control/ControlProtocol.h"
#include "router/control/DeviceListing.h"

namespace tool {

class RouterService {
 public:
  RouterService();
  RouterService(const RouterService&) = delete;
  RouterService& operator=(const RouterService&) = delete;
  ~RouterService();

  /// Within so long a time a router has started that was not running, unless something is wrong.
  static constexpr std::chrono::milliseconds kReplyLimit{30'000};

  [[nodiscard]] router::RouterStatus status(std::chrono::milliseconds limit = kReplyLimit) const;
  [[nodiscard]] std::vector<router::ListedDevice> devices() const;
  /// When the latest reports of a device that this process routes reached the router. Nothing if it
  /// does not say so within a quarter of a second.
  [[nodiscard]] std::optional<router::ReportArrivals> arrivalsOf(
      std::uint64_t registryEntryID) const;
  /// A person may be asked first.
  void endSession(std::uint64_t number) const;

 private:
  struct Answer {
    std::shared_ptr<platform::NSDictionary> dictionary;
    std::shared_ptr<platform::NSError> error;
  };
  using Answered = std::function<void(Answer answer)>;
  [[nodiscard]] Answer ask(
      std::chrono::milliseconds limit,
      const std::function<void(router::RouterControlProtocol&, const Answered&)>& send) const;
  [[nodiscard]] std::shared_ptr<platform::NSDictionary> askFor(
      void (router::RouterControlProtocol::*what)(router::RouterControlProtocol::Reply),
      std::chrono::milliseconds limit = kReplyLimit) const;

  const std::shared_ptr<platform::NSXPCConnection> connection_;
};

}  // namespace tool
