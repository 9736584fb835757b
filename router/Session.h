// SPDX-License-Identifier: Apache-2.0

// One client's connection and the device routed to it.
//
// A session routes one device at a time. A start request during a routing silently replaces it. A
// start request may have to wait, for its turn, for permission or for a place at its device;
// meanwhile the queue serves other messages. Another start request, a stop request and the end of
// the connection give up the one that waits: it is answered with an error, and no longer holds
// anything. When the permission is revoked, nothing more is delivered and the connection is closed
// gracefully, so a client that still wants the device has to ask again.
//
// Threading: the two requests and the end of the connection arrive on the connection's queue, one
//   at a time, and a waiting start resumes there; the rest may be called from any thread.
// Ownership: holds its connection; the router holds the session until the connection has ended.
// Errors: reported to the client. Each start request is answered once.
// Order: a start request is answered before the first report is sent, and one that is given up
//   before the request that replaces it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/foundation/LogTemplate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/Backlog.h"
#include "router/EndedRoutings.h"
#include "router/Quotas.h"
#include "router/ReportArrivals.h"
#include "router/RoutedDevice.h"
#include "router/RouterStatus.h"
#include "router/StartLine.h"
#include "router/Subscription.h"
#include "router/policy/RoutingAuthority.h"

namespace router {

/// What a session needs from the router. Called on the connection's queue.
class SessionOwner {
 public:
  virtual ~SessionOwner() = default;
  /// The queue of waiting start requests.
  virtual StartLine& startLine() = 0;
  /// Null if no source has such a device.
  virtual std::shared_ptr<RoutedDevice> deviceWithID(std::uint64_t registryEntryID) = 0;
  virtual EndedRoutings& endedRoutings() = 0;
  virtual void sessionChanged() = 0;
  /// May leave out lines about a user who causes too many, and then logs how many.
  virtual void log(uid_t user, const platform::LogLine& line) = 0;
};

class Session final : public WLHIDEventRouterProtocol,
                      public std::enable_shared_from_this<Session> {
 public:
  /// `caller` is null where nobody has to be asked.
  Session(std::uint64_t number, std::shared_ptr<platform::NSXPCConnection> connection,
          std::weak_ptr<SessionOwner> owner, const std::shared_ptr<Backlog>& backlog,
          std::shared_ptr<RoutingCaller> caller = nullptr);

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tagDictionary,
      const std::shared_ptr<platform::NSDictionary>& typeDictionary, StartReply reply) override;
  void stopRoutingService() override;

  /// The connection has ended.
  void end();
  /// Closes the connection gracefully.
  void sayFarewell() { connection_->invalidate(); }
  /// The same, but for good: what the client routes or waits for is not given to it when it asks
  /// for it again by itself.
  void endForGood();
  /// Updates the client's backlog, even if nothing is being sent to it any more.
  void measureBacklog() { static_cast<void>(backlog_->admits(connection_->unsentBytes())); }

  /// The current status and, optionally, the total number of lost reports: both from a single
  /// reading of the counters, so that they agree while losses grow.
  [[nodiscard]] SessionStatus status(std::uint64_t* returnLostInAll = nullptr) const;
  /// Reports lost to this client, including during earlier routings.
  [[nodiscard]] std::uint64_t lost() const;
  /// Nothing unless that device is routed.
  [[nodiscard]] std::optional<ReportArrivals> arrivalsOf(std::uint64_t registryEntryID) const;
  [[nodiscard]] std::uint64_t number() const { return number_; }
  [[nodiscard]] pid_t process() const { return pid_; }
  [[nodiscard]] uid_t user() const { return uid_; }

 private:
  struct Routing {
    std::shared_ptr<RoutedDevice> device;
    std::shared_ptr<Subscription> subscription;
    std::shared_ptr<RoutingPermit> permit;  // null where nobody has to be asked
    std::uint64_t start = 0;                // which start request began it
  };

  enum class Step { Turn, Permission, Place };

  /// A start request that has not been answered yet.
  struct Start {
    std::uint64_t entryID = 0;
    std::uint64_t deviceMode = 0;
    std::shared_ptr<platform::NSDictionary> tagDictionary;
    StartReply reply;
    Step waitsFor = Step::Turn;
    Routing routing;           // empty while it waits for its turn
    StartLine::Ticket ticket;  // while it waits for its turn or a place
  };

  /// In this order. Each answers the request, or leaves it waiting for the next step.
  void begin(Start start);
  void takeTurn(Start start);
  void askPermission(Start start);
  void takePermission(std::uint64_t number, const RoutingAnswer& answer);
  void askPlace(Start start);
  void takePlace(Start start);
  /// Resumes the latest start request on the queue, if it is still waiting then.
  [[nodiscard]] std::function<void()> wake();
  void goOn(std::uint64_t number);
  /// The start request of that number has lost its permission, and its delivery has ended: closes
  /// the connection.
  void revoke(std::uint64_t number, const std::string& reason);
  void refuse(const Start& start, const std::shared_ptr<platform::NSError>& error);
  void giveUpStart(const std::string& why);
  void endNow();

  std::shared_ptr<platform::NSError> prepare(SessionOwner& owner, Start* start);
  [[nodiscard]] Routing currentRouting() const;
  void endRouting();
  void noteChange() const;
  /// Leaves out lines in excess of the session's limit, and logs how many when it ends or logs
  /// again.
  template <const platform::LogTemplate& Row, class... Arguments>
  void log(const Arguments&... arguments);
  /// Every row about a session starts with the session.
  template <const platform::LogTemplate& Row, class... Arguments>
  void logUnlimited(const Arguments&... arguments) const;

  const std::uint64_t number_;
  const std::shared_ptr<platform::NSXPCConnection> connection_;
  // Captured at the beginning: a connection that has ended has no peer any more.
  const pid_t pid_;
  const uid_t uid_;
  const std::weak_ptr<SessionOwner> owner_;
  const std::shared_ptr<RoutingCaller> caller_;
  const std::shared_ptr<Backlog::Share> backlog_;
  LineBudget lines_;                   // on the connection's queue
  std::optional<Start> waitingStart_;  // on the connection's queue
  std::uint64_t latestStart_ = 0;      // on the connection's queue
  mutable std::mutex mutex_;  // of the two below, which are changed on the connection's queue only
  Routing routing_;
  std::uint64_t lostBefore_ = 0;
};

}  // namespace router
