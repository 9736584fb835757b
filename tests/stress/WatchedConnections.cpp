// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/WatchedConnections.h"

#include <map>
#include <mutex>

#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace stress {
namespace {

using platform::NSXPCConnection;

/// A queue is one thread, which serves one connection and ends with it. These are: when it last
/// returned from a call; the value of that when the invalidation handler began, up to which
/// everything sent must be settled before the handler; and whether the handler has finished.
thread_local std::uint64_t lastCallAt = 0;
thread_local std::uint64_t mustBeSettled = 0;
thread_local bool afterInvalidation = false;

struct Watch {
  Watch(ConnectionCounts& into, Findings& from) : counts(into), findings(from) {}

  ConnectionCounts& counts;
  Findings& findings;
  std::atomic<std::uint64_t> clock{0};
  std::mutex mutex;
  /// By identity of the exported object, which may no longer exist.
  std::map<std::weak_ptr<void>, int, std::owner_less<>> held;
};

/// One start request.
class Ticket {
 public:
  explicit Ticket(Watch& watch) : watch_(watch) {}
  void send() { sent_ = true; }
  void hasBeenSent() { sentAt_ = ++watch_.clock; }
  void answered() { settle(watch_.counts.startsAnswered); }
  void failed() {
    if (sent_) settle(watch_.counts.startsFailed);
  }

 private:
  void settle(std::atomic<std::uint64_t>& count) {
    watch_.findings.demand(!settled_.exchange(true), "a start request is settled once");
    // What is sent to a connection that has ended can only be settled after its end. The end is not
    // the moment in which the handler begins: between the layer's decision to call it and its first
    // line another thread may send. So what counts is what was sent before the queue returned from
    // its last call, which is before the decision.
    const bool wasSentBefore = sentAt_ != 0 && sentAt_ < mustBeSettled;
    watch_.findings.demand(!afterInvalidation || !wasSentBefore,
                           "nothing sent before it is settled after the invalidation handler");
    count.fetch_add(1);
  }

  Watch& watch_;
  std::atomic<bool> sent_{false};
  std::atomic<std::uint64_t> sentAt_{0};
  std::atomic<bool> settled_{false};
};

/// The client creates a proxy for each request.
class WatchedProxy final : public WLHIDEventRouterProtocol {
 public:
  WatchedProxy(std::shared_ptr<WLHIDEventRouterProtocol> proxy, Watch& watch,
               std::shared_ptr<Ticket> ticket)
      : proxy_(std::move(proxy)), watch_(watch), ticket_(std::move(ticket)) {}

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tags,
      const std::shared_ptr<platform::NSDictionary>& types, StartReply reply) override {
    watch_.counts.startsSent.fetch_add(1);
    ticket_->send();
    proxy_->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
        entryID, deviceMode, tags, types,
        [ticket = ticket_, &watch = watch_, reply = std::move(reply)](const auto& error) {
          ticket->answered();
          reply(error);
          lastCallAt = ++watch.clock;
        });
    ticket_->hasBeenSent();
  }
  void stopRoutingService() override { proxy_->stopRoutingService(); }

 private:
  const std::shared_ptr<WLHIDEventRouterProtocol> proxy_;
  Watch& watch_;
  const std::shared_ptr<Ticket> ticket_;
};

class WatchedConnection final : public NSXPCConnection {
 public:
  WatchedConnection(std::shared_ptr<NSXPCConnection> connection, Watch& watch)
      : connection_(std::move(connection)), watch_(watch) {
    watch_.counts.made.fetch_add(1);
  }
  WatchedConnection(const WatchedConnection&) = delete;
  WatchedConnection& operator=(const WatchedConnection&) = delete;
  ~WatchedConnection() override { letGo(); }

  void setExportedInterface(std::shared_ptr<platform::NSXPCInterface> interface) override {
    connection_->setExportedInterface(std::move(interface));
  }
  void setRemoteObjectInterface(std::shared_ptr<platform::NSXPCInterface> interface) override {
    connection_->setRemoteObjectInterface(std::move(interface));
  }
  void setInterruptionHandler(std::function<void()> handler) override {
    connection_->setInterruptionHandler([&watch = watch_, handler = std::move(handler)] {
      watch.counts.interruptions.fetch_add(1);
      watch.findings.demand(!afterInvalidation, "no interruption follows an invalidation");
      handler();
      lastCallAt = ++watch.clock;
    });
  }
  void setInvalidationHandler(std::function<void()> handler) override {
    connection_->setInvalidationHandler([&watch = watch_, handler = std::move(handler)] {
      watch.counts.invalidations.fetch_add(1);
      watch.findings.demand(!afterInvalidation, "an invalidation handler runs once");
      mustBeSettled = lastCallAt;
      handler();
      afterInvalidation = true;
    });
  }
  void resume() override {
    take();
    connection_->resume();
  }
  void invalidate() override {
    letGo();
    connection_->invalidate();
  }
  [[nodiscard]] uid_t effectiveUserIdentifier() const override {
    return connection_->effectiveUserIdentifier();
  }
  [[nodiscard]] pid_t processIdentifier() const override {
    return connection_->processIdentifier();
  }

 protected:
  void setExportedObject(platform::XPCExportedObject object) override {
    exported_ = object.object;
    connection_->setExportedObject<WLHIDEventRouterClientProtocol>(
        std::static_pointer_cast<WLHIDEventRouterClientProtocol>(object.object.lock()));
  }
  std::shared_ptr<void> remoteObjectProxy(const platform::XPCProtocol&,
                                          platform::XPCErrorHandler handler) override {
    const auto ticket = std::make_shared<Ticket>(watch_);
    auto proxy = connection_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
        [ticket, &watch = watch_, handler = std::move(handler)](const auto& error) {
          ticket->failed();
          handler(error);
          lastCallAt = ++watch.clock;
        });
    if (!proxy) return nullptr;
    const std::shared_ptr<WLHIDEventRouterProtocol> watched =
        std::make_shared<WatchedProxy>(std::move(proxy), watch_, ticket);
    return watched;
  }

 private:
  void take() {
    const std::lock_guard lock(watch_.mutex);
    if (isOver_) return;
    isHeld_ = true;
    const int held = ++watch_.held[exported_];
    watch_.findings.demand(held <= 1, "a client holds one connection at most");
  }
  void letGo() {
    const std::lock_guard lock(watch_.mutex);
    isOver_ = true;
    if (!std::exchange(isHeld_, false)) return;
    const auto found = watch_.held.find(exported_);
    if (--found->second == 0) watch_.held.erase(found);
  }

  const std::shared_ptr<NSXPCConnection> connection_;
  Watch& watch_;
  std::weak_ptr<void> exported_;
  bool isHeld_ = false;  // guarded by the watch's mutex, as is the next one
  bool isOver_ = false;
};

class WatchedLayer final : public platform::XPCProvider {
 public:
  WatchedLayer(std::shared_ptr<platform::XPCProvider> layer, Watch& watch)
      : layer_(std::move(layer)), watch_(watch) {}
  std::shared_ptr<platform::NSXPCInterface> interfaceWithProtocol(
      const platform::XPCProtocol& protocol) override {
    return layer_->interfaceWithProtocol(protocol);
  }
  std::shared_ptr<NSXPCConnection> connection(const std::shared_ptr<platform::NSString>& name,
                                              platform::NSXPCConnectionOptions options) override {
    return std::make_shared<WatchedConnection>(layer_->connection(name, options), watch_);
  }

 private:
  const std::shared_ptr<platform::XPCProvider> layer_;
  Watch& watch_;
};

}  // namespace

void watchConnections(ConnectionCounts& counts, Findings& findings) {
  auto* const watch = new Watch(counts, findings);  // connections may outlive everything
  const auto layer = platform::xpcProvider().load();
  platform::xpcProvider().exchange(std::make_shared<WatchedLayer>(layer, *watch));
}

bool isAfterInvalidation() {
  return afterInvalidation;
}

}  // namespace stress
