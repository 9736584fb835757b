// SPDX-License-Identifier: Apache-2.0

// What a client tells: its input goes to the application at once, the rest to the loop's thread.
//
// Threading: the client's threads.
// Ownership: held by whoever uses the client, because a client holds its delegate weakly.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "WLHIDAccess/Input.h"
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "input/Strand.h"

namespace wlhid {

class InputRelay final : public WLHIDEventRouterClientDelegate {
 public:
  struct Receivers {
    std::function<void(WLHIDEventRouterClientStatus)> status;
    std::function<void(const std::shared_ptr<platform::NSError>&)> failed;
  };

  InputRelay(std::shared_ptr<const InputHandlers> handlers, std::shared_ptr<Strand> strand,
             Receivers receivers)
      : handlers_(std::move(handlers)),
        strand_(std::move(strand)),
        receivers_(std::move(receivers)) {}

  void hidEventRouterClient_clientStatusChangedTo(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      WLHIDEventRouterClientStatus status) override;
  void hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>& client,
                                        const std::shared_ptr<platform::NSError>& error) override;
  void hidEventRouterClient_receivedElementValues(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      const std::shared_ptr<platform::NSArray>& elementValues) override;
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      const std::shared_ptr<platform::NSData>& data, std::uint32_t reportID) override;

 private:
  const std::shared_ptr<const InputHandlers> handlers_;
  const std::shared_ptr<Strand> strand_;
  const Receivers receivers_;
  std::atomic<std::uint64_t> reports_{0};
};

}  // namespace wlhid
