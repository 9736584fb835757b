// One client's routing as the command shows it: a delegate that prints what it is told and knows
// when it is over.
//
// Threading: the delegate's methods run where the framework calls them; end() may be called from
//   any thread; the rest is the main thread's, which waits for wakeDescriptor().
// Ownership: the caller owns the session, and the client holds it weakly, so it must outlive the
//   routing.
// Errors: how it ended is in the end's message.
// Order: lines are printed in the order of delivery. Nothing is printed once the routing is over.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "tool/routing/DeliveryLines.h"
#include "tool/terminal/Output.h"

namespace tool {

struct RouteEnd {
  bool failed = false;
  std::string message;  ///< why it failed
};

class RouteSession final : public WLHIDEventRouterClientDelegate {
 public:
  /// It is over with report number `last`, or with the element values that follow it, which the
  /// caller waits for a moment.
  RouteSession(std::unique_ptr<DeliveryLines> lines, int outputDescriptor,
               std::optional<std::uint64_t> last);
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

  /// Ends it, unless it has ended: nothing more is printed, then the client is stopped (null: there
  /// is none to stop).
  void end(const std::shared_ptr<WLHIDEventRouterClient>& client, RouteEnd how);
  /// Readable when ended() or lastReportSeen() has become true.
  [[nodiscard]] int wakeDescriptor() const { return wake_; }
  /// Makes it unreadable until the next of these.
  void drainWake() const;
  [[nodiscard]] bool ended() const { return stopped_; }
  /// The router has answered the start, one way or the other.
  [[nodiscard]] bool answered() const { return answered_; }
  /// The last report has been printed, and its element values may follow.
  [[nodiscard]] bool lastReportSeen() const { return lastReportSeen_; }
  /// How it ended; after ended(). Waits for a line that is being printed.
  [[nodiscard]] RouteEnd howItEnded() const;
  [[nodiscard]] std::uint64_t reports() const { return reports_; }

 private:
  void print(const std::shared_ptr<WLHIDEventRouterClient>& client, const std::string& line);
  /// What is to be printed now: nothing, or what was held back and the line.
  std::string takeDueStatus(const std::string& line, WLHIDEventRouterClientStatus status);
  std::string takeHeldBack();
  void wake();

  const std::unique_ptr<DeliveryLines> lines_;
  Output output_;
  const std::optional<std::uint64_t> last_;
  const int wake_;
  std::atomic<std::uint64_t> reports_ = 0;
  std::atomic<bool> answered_ = false;
  std::atomic<bool> lastReportSeen_ = false;
  std::atomic<bool> ending_ = false;
  std::atomic<bool> stopped_ = false;
  mutable std::mutex mutex_;
  RouteEnd end_;
  // Statuses since the connection of a device that was routed ended: printed once it is known that
  // this was not the end of a recording.
  std::string heldBack_;
  bool wasRouted_ = false;
};

}  // namespace tool
