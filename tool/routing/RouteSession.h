// SPDX-License-Identifier: Apache-2.0

// One client's routing session as the command shows it: a delegate that prints what it receives and
// knows when the session is over.
//
// Threading: the delegate's methods run on the framework's threads; end() may be called from any
//   thread; everything else belongs to the main thread, which waits on wakeDescriptor().
// Ownership: the caller owns the session and must keep it until routing is over: the client holds
//   it weakly.
// Errors: RouteEnd's message.
// Order: lines are printed in the order of delivery; nothing is printed after the end.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "tool/routing/DeliveryLines.h"
#include "tool/terminal/Output.h"

namespace tool {

struct RouteEnd {
  bool failed = false;
  std::string message;  ///< why it failed
};

class RouteSession final : public WLHIDEventRouterClientDelegate {
 public:
  /// Ends with report number `last`, or with the element values that follow it, for which the
  /// caller waits briefly. `outputName` is for messages.
  RouteSession(std::unique_ptr<DeliveryLines> lines, int outputDescriptor,
               std::optional<std::uint64_t> last, std::string outputName = "standard output");
  ~RouteSession() override;

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

  /// Ends the session unless it has ended: nothing more is printed, then the client is stopped
  /// (null: no client to stop).
  void end(const std::shared_ptr<WLHIDEventRouterClient>& client, RouteEnd how);
  /// Readable once ended() or lastReportSeen() has become true.
  [[nodiscard]] int wakeDescriptor() const { return wake_; }
  /// Makes the descriptor unreadable until the next of these.
  void drainWake() const;
  [[nodiscard]] bool ended() const { return stopped_; }
  /// The router has answered the start request, with success or failure.
  [[nodiscard]] bool answered() const { return answered_; }
  /// The last report has been printed; its element values may follow.
  [[nodiscard]] bool lastReportSeen() const { return lastReportSeen_; }
  /// Valid after ended(). Waits for a line that is still being printed.
  [[nodiscard]] RouteEnd howItEnded() const;
  /// That have been printed.
  [[nodiscard]] std::uint64_t reports() const { return reports_; }

 private:
  /// False if that was impossible; then the session has ended.
  bool print(const std::shared_ptr<WLHIDEventRouterClient>& client, const std::string& line);
  /// What to print now: nothing, or everything held back and the line.
  std::string takeDueStatus(const std::string& line, WLHIDEventRouterClientStatus status);
  std::string takeHeldBack();
  void wake();

  const std::unique_ptr<DeliveryLines> lines_;
  Output output_;
  const std::string outputName_;
  const std::optional<std::uint64_t> last_;
  const int wake_;
  std::atomic<std::uint64_t> reports_ = 0;
  std::atomic<bool> answered_ = false;
  std::atomic<bool> lastReportSeen_ = false;
  std::atomic<bool> ending_ = false;
  std::atomic<bool> stopped_ = false;
  mutable std::mutex mutex_;
  RouteEnd end_;
  // Statuses since the connection of a routed device ended: printed once it is known that this was
  // not the end of a recording.
  std::string heldBack_;
  bool wasRouted_ = false;
};

}  // namespace tool
