// One client's connection, and what it has routed.
//
// A session routes one device at a time. A start request that comes while it does replaces the
// routing, quietly.
//
// Threading: the two requests and the end of the connection come on the connection's queue, one at
//   a time; the rest may be called from any thread.
// Ownership: holds its connection; the router holds the session until the connection has ended.
// Errors: answered to the client.
// Order: a start request is answered before the first report is sent.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/RoutedDevice.h"
#include "router/RouterStatus.h"

namespace router {

/// What a session asks of the router. Called on the connection's queue.
class SessionOwner {
 public:
  virtual ~SessionOwner() = default;
  /// Null when no source has such a device.
  virtual std::shared_ptr<RoutedDevice> deviceWithID(std::uint64_t registryEntryID) = 0;
  virtual void sessionChanged() = 0;
  virtual void log(std::string_view line) = 0;
};

class Session final : public WLHIDEventRouterProtocol {
 public:
  Session(std::uint64_t number, std::shared_ptr<platform::NSXPCConnection> connection,
          std::weak_ptr<SessionOwner> owner);

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tagDictionary,
      const std::shared_ptr<platform::NSDictionary>& typeDictionary, StartReply reply) override;
  void stopRoutingService() override;

  /// The connection has ended.
  void end();
  /// Ends the connection in good order.
  void sayFarewell() { connection_->invalidate(); }

  /// What the session does now and, where asked for, what it lost in all: both from one reading of
  /// the counts, so that they agree while losses grow.
  [[nodiscard]] SessionStatus status(std::uint64_t* returnLostInAll = nullptr) const;
  /// Reports lost to this client, also by routings that are over.
  [[nodiscard]] std::uint64_t lost() const;
  [[nodiscard]] std::uint64_t number() const { return number_; }
  /// "session 3 (process 123, user 1000)"
  [[nodiscard]] const std::string& title() const { return title_; }

 private:
  struct Routing {
    std::shared_ptr<RoutedDevice> device;
    std::shared_ptr<Subscription> subscription;
  };

  std::shared_ptr<platform::NSError> admit(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tagDictionary, Routing* returnRouting);
  [[nodiscard]] Routing currentRouting() const;
  void endRouting();
  void log(const std::string& text) const;

  const std::uint64_t number_;
  const std::shared_ptr<platform::NSXPCConnection> connection_;
  // As of the beginning: a connection that has ended has no peer any more.
  const pid_t pid_;
  const uid_t uid_;
  const std::string title_;
  const std::weak_ptr<SessionOwner> owner_;
  mutable std::mutex mutex_;  // of the two below, which are changed on the connection's queue only
  Routing routing_;
  std::uint64_t lostBefore_ = 0;
};

}  // namespace router
