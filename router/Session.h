// One client's connection, and what it has routed.
//
// A session routes one device at a time. A start request that comes while it does replaces the
// routing, quietly. A start request may have to wait, for its turn or for a place at its device;
// meanwhile the queue serves what else comes. Another start request, a stop request and the end of
// the connection give up the one that waits: it is answered so, and has taken nothing.
//
// Threading: the two requests and the end of the connection come on the connection's queue, one at
//   a time, and what ends a wait goes on there; the rest may be called from any thread.
// Ownership: holds its connection; the router holds the session until the connection has ended.
// Errors: answered to the client. Each start request is answered once.
// Order: a start request is answered before the first report is sent, and one that is given up
//   before what replaces it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/Quotas.h"
#include "router/RoutedDevice.h"
#include "router/RouterStatus.h"
#include "router/StartLine.h"

namespace router {

/// What a session asks of the router. Called on the connection's queue.
class SessionOwner {
 public:
  virtual ~SessionOwner() = default;
  /// Where start requests wait.
  virtual StartLine& startLine() = 0;
  /// Null when no source has such a device.
  virtual std::shared_ptr<RoutedDevice> deviceWithID(std::uint64_t registryEntryID) = 0;
  /// A client of that process has heard the recording to its end.
  virtual void noteRecordingEnded(pid_t process, std::uint64_t registryEntryID) = 0;
  /// Whether one has, and has not been told so. It counts as told from then on.
  virtual bool takeRecordingEnded(pid_t process, std::uint64_t registryEntryID) = 0;
  virtual void sessionChanged() = 0;
  /// May leave out lines about a user of whom there are too many, and then says so.
  virtual void log(uid_t user, const platform::LogLine& line) = 0;
};

class Session final : public WLHIDEventRouterProtocol,
                      public std::enable_shared_from_this<Session> {
 public:
  Session(std::uint64_t number, std::shared_ptr<platform::NSXPCConnection> connection,
          std::weak_ptr<SessionOwner> owner, const std::shared_ptr<Backlog>& backlog);

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tagDictionary,
      const std::shared_ptr<platform::NSDictionary>& typeDictionary, StartReply reply) override;
  void stopRoutingService() override;

  /// The connection has ended.
  void end();
  /// Ends the connection in good order.
  void sayFarewell() { connection_->invalidate(); }
  /// Brings what the client has unsent up to date, also where nothing is sent to it any more.
  void measureBacklog() { static_cast<void>(backlog_->admits(connection_->unsentBytes())); }

  /// What the session does now and, where asked for, what it lost in all: both from one reading of
  /// the counts, so that they agree while losses grow.
  [[nodiscard]] SessionStatus status(std::uint64_t* returnLostInAll = nullptr) const;
  /// Reports lost to this client, also by routings that are over.
  [[nodiscard]] std::uint64_t lost() const;
  [[nodiscard]] std::uint64_t number() const { return number_; }
  [[nodiscard]] pid_t process() const { return pid_; }
  [[nodiscard]] uid_t user() const { return uid_; }

 private:
  struct Routing {
    std::shared_ptr<RoutedDevice> device;
    std::shared_ptr<Subscription> subscription;
  };

  /// A start request until it is answered.
  struct Start {
    std::uint64_t entryID = 0;
    std::uint64_t deviceMode = 0;
    std::shared_ptr<platform::NSDictionary> tagDictionary;
    StartReply reply;
    Routing routing;           // none while it waits for its turn
    StartLine::Ticket ticket;  // while it waits
  };

  /// In the order in which they come: each answers the request, or leaves it waiting for the next.
  void begin(Start start);
  void takeTurn(Start start);
  void takePlace(Start start);
  /// Has the start request that has begun last go on, on the queue, if it still waits then.
  [[nodiscard]] std::function<void()> wake();
  void goOn(std::uint64_t number);
  void refuse(const Start& start, const std::shared_ptr<platform::NSError>& error);
  void giveUpStart(const std::string& why);

  std::shared_ptr<platform::NSError> prepare(SessionOwner& owner, Start* start);
  [[nodiscard]] Routing currentRouting() const;
  void endRouting();
  void noteChange() const;
  /// Leaves out what is too much of one session, and says so when it ends or writes again.
  template <const platform::LogTemplate& Row, class... Arguments>
  void log(const Arguments&... arguments);
  /// Every row of a session's begins with the session.
  template <const platform::LogTemplate& Row, class... Arguments>
  void logUnlimited(const Arguments&... arguments) const;

  const std::uint64_t number_;
  const std::shared_ptr<platform::NSXPCConnection> connection_;
  // As of the beginning: a connection that has ended has no peer any more.
  const pid_t pid_;
  const uid_t uid_;
  const std::weak_ptr<SessionOwner> owner_;
  const std::shared_ptr<Backlog::Share> backlog_;
  LineBudget lines_;                   // on the connection's queue
  std::optional<Start> waitingStart_;  // likewise
  std::uint64_t latestStart_ = 0;      // likewise
  mutable std::mutex mutex_;  // of the two below, which are changed on the connection's queue only
  Routing routing_;
  std::uint64_t lostBefore_ = 0;
};

}  // namespace router
