// SPDX-License-Identifier: Apache-2.0

// A client whose delegate counts what it is told and lets others wait for it.
//
// Threading: any thread.
// Ownership: the delegate is shared with the client's user; the client holds it weakly.
// Errors: waits are bounded by kPatience and return whether the event came.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "tests/stress/Stress.h"

namespace stress {

/// What a delegate has been told so far.
struct Heard {
  WLHIDEventRouterClientStatus status = WLHIDEventRouterClientStatusIdle;
  std::uint64_t statusChanges = 0;
  std::uint64_t routings = 0;  ///< changes to Routing
  std::uint64_t errors = 0;
  std::uint64_t reports = 0;
  std::uint64_t valueArrays = 0;
};

class Listener final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                  WLHIDEventRouterClientStatus status) override {
    change([status](Heard& heard) {
      heard.status = status;
      ++heard.statusChanges;
      if (status == WLHIDEventRouterClientStatusRouting) ++heard.routings;
    });
  }
  void hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>&,
                                        const std::shared_ptr<platform::NSError>&) override {
    change([](Heard& heard) { ++heard.errors; });
  }
  void hidEventRouterClient_receivedElementValues(
      const std::shared_ptr<WLHIDEventRouterClient>&,
      const std::shared_ptr<platform::NSArray>&) override {
    change([](Heard& heard) { ++heard.valueArrays; });
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>&,
      std::uint32_t) override {
    change([](Heard& heard) { ++heard.reports; });
  }

  [[nodiscard]] Heard heard() const {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  template <class Condition>
  [[nodiscard]] bool waitUntil(const Condition& condition,
                               std::chrono::microseconds limit = kPatience) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return condition(heard_); });
  }
  /// Waits until it routes for the `routings`-th time.
  [[nodiscard]] bool waitForRouting(std::uint64_t routings) const {
    return waitUntil([=](const Heard& heard) { return heard.routings >= routings; });
  }
  /// Waits for `more` further reports.
  [[nodiscard]] bool waitForInput(std::uint64_t more = 1,
                                  std::chrono::microseconds limit = kPatience) const {
    const std::uint64_t before = heard().reports;
    return waitUntil([=](const Heard& heard) { return heard.reports >= before + more; }, limit);
  }

 private:
  template <class Change>
  void change(const Change& apply) {
    {
      const std::lock_guard lock(mutex_);
      apply(heard_);
    }
    changed_.notify_all();
  }

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  Heard heard_;
};

struct WatchedClient {
  explicit WatchedClient(std::uint64_t device, std::uint64_t mode = 0)
      : client(
            WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
                device, mode, nullptr, nullptr)) {
    client->setDelegate(listener);
  }
  /// Starts and waits for input; whether it came.
  [[nodiscard]] bool startAndReceive() const {
    const std::uint64_t routings = listener->heard().routings;
    client->setStarted(true);
    return listener->waitForRouting(routings + 1) && listener->waitForInput();
  }

  std::shared_ptr<Listener> listener = std::make_shared<Listener>();
  std::shared_ptr<WLHIDEventRouterClient> client;
};

}  // namespace stress
