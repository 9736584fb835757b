// SPDX-License-Identifier: Apache-2.0

// A delegate that records each call in a trace and keeps the last call of each kind.
//
//   const auto delegate = std::make_shared<testkit::RecordingDelegate>(platform.trace());
//
// Threading: called like any delegate. It stores a call before it records the line, so a test that
//   has waited for the line may read it.
// Ownership: the trace must outlive it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/scripted/Trace.h"

namespace testkit {

class RecordingDelegate : public WLHIDEventRouterClientDelegate {
 public:
  explicit RecordingDelegate(platform::Trace& trace) : trace_(trace) {}

  void hidEventRouterClient_clientStatusChangedTo(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      WLHIDEventRouterClientStatus status) override {
    lastStatusThread = std::this_thread::get_id();
    record("clientStatusChangedTo", {std::to_string(static_cast<std::uint64_t>(status))});
    if (onStatus) onStatus(client, status);
  }
  void hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>&,
                                        const std::shared_ptr<platform::NSError>& error) override {
    lastError = error;
    record("handleError", {error->description()});
  }
  void hidEventRouterClient_receivedElementValues(
      const std::shared_ptr<WLHIDEventRouterClient>&,
      const std::shared_ptr<platform::NSArray>& elementValues) override {
    lastElementValues = elementValues;
    record("receivedElementValues", {std::to_string(elementValues->count())});
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>& data,
      std::uint32_t reportID) override {
    lastData = data;
    record("receivedReportData", {data->description(), std::to_string(reportID)});
  }

  std::function<void(const std::shared_ptr<WLHIDEventRouterClient>&, WLHIDEventRouterClientStatus)>
      onStatus;
  std::atomic<std::thread::id> lastStatusThread{std::thread::id()};
  std::shared_ptr<platform::NSError> lastError;
  std::shared_ptr<platform::NSArray> lastElementValues;
  std::shared_ptr<platform::NSData> lastData;

 private:
  void record(std::string name, std::vector<std::string> arguments) {
    std::string text = "delegate " + name;
    for (const std::string& argument : arguments) text += " " + argument;
    trace_.record({platform::TraceKind::Delegate, "delegate", std::move(name), std::move(arguments),
                   std::move(text)});
  }

  platform::Trace& trace_;
};

}  // namespace testkit
