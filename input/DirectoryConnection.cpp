// SPDX-License-Identifier: Apache-2.0

#include "input/DirectoryConnection.h"

#include <algorithm>
#include <utility>

#include "input/DeviceRecords.h"
#include "platform/xpc/NSXPCInterface.h"

namespace wlhid {

using platform::NSXPCConnection;
using platform::NSXPCInterface;

namespace {

/// A router that ends sooner after its answer is one that keeps failing.
constexpr std::chrono::seconds kStable{5};
/// One that has not answered by then may not serve the directory at all.
constexpr std::chrono::seconds kAnswerLimit{20};

}  // namespace

std::shared_ptr<NSXPCConnection> connectionToDirectory() {
  auto connection =
      NSXPCConnection::initWithMachServiceName_options(platform::str(WLHIDDeviceDirectoryLabel), 0);
  if (connection != nullptr)
    connection->setRemoteObjectInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDDeviceDirectoryProtocol::protocol()));
  return connection;
}

/// What the router calls, on the connection's queue.
class DirectoryConnection::Receiver final : public WLHIDDeviceDirectoryClientProtocol {
 public:
  using OnLoop = std::function<void(std::function<void(DirectoryConnection&)>)>;
  explicit Receiver(OnLoop onLoop) : onLoop_(std::move(onLoop)) {}

  void deviceArrived(const std::shared_ptr<platform::NSDictionary>& device) override {
    take(device);
  }
  void deviceChanged(const std::shared_ptr<platform::NSDictionary>& device) override {
    take(device);
  }
  void deviceDeparted(std::uint64_t registryEntryID) override {
    onLoop_([=](DirectoryConnection& self) { self.takeDeparture(registryEntryID); });
  }

 private:
  void take(const std::shared_ptr<platform::NSDictionary>& dictionary) {
    if (dictionary == nullptr) return;
    onLoop_([device = deviceIn(*dictionary)](DirectoryConnection& self) { self.takeOne(device); });
  }
  const OnLoop onLoop_;
};

std::function<void(std::function<void(DirectoryConnection&)>)> DirectoryConnection::onLoop() {
  return [&loop = loop_, weak = weak_from_this(),
          attempt = attempt_](std::function<void(DirectoryConnection&)> work) {
    loop.post([weak, attempt, work = std::move(work)] {
      const auto self = weak.lock();
      if (self != nullptr && !self->isEnded_ && self->attempt_ == attempt) work(*self);
    });
  };
}

void DirectoryConnection::begin() {
  connect();
}

void DirectoryConnection::end() {
  isEnded_ = true;
  disconnect();
}

void DirectoryConnection::disconnect() {
  loop_.cancel(pause_);
  loop_.cancel(limit_);
  ++attempt_;
  if (connection_ != nullptr) connection_->invalidate();
  connection_ = nullptr;
  receiver_ = nullptr;
}

void DirectoryConnection::hurry() {
  if (isEnded_ || connection_ != nullptr) return;
  loop_.cancel(pause_);
  backoff_.reset();
  connect();
}

void DirectoryConnection::setFilter(DeviceFilter filter) {
  filter_ = std::move(filter);
  refresh();
}

void DirectoryConnection::refresh() {
  if (!isEnded_ && connection_ != nullptr) watch();
}

void DirectoryConnection::connect() {
  ++attempt_;
  connection_ = connectionToDirectory();
  if (connection_ == nullptr) return fail(Loss::Closed, "no connection can be made");
  const auto onLoop = this->onLoop();
  receiver_ = std::make_shared<Receiver>(onLoop);
  connection_->setExportedInterface(
      NSXPCInterface::interfaceWithProtocol(WLHIDDeviceDirectoryClientProtocol::protocol()));
  connection_->setExportedObject<WLHIDDeviceDirectoryClientProtocol>(receiver_);
  connection_->setInterruptionHandler([onLoop] {
    onLoop([](DirectoryConnection& self) {
      self.fail(Loss::Died, "the router has ended unexpectedly");
    });
  });
  connection_->setInvalidationHandler([onLoop] {
    onLoop([](DirectoryConnection& self) {
      self.fail(Loss::Closed, "no router serves applications here");
    });
  });
  connection_->resume();
  watch();
}

void DirectoryConnection::watch() {
  const auto onLoop = this->onLoop();
  loop_.cancel(limit_);
  limit_ = loop_.after(kAnswerLimit, [onLoop] {
    onLoop([](DirectoryConnection& self) {
      self.fail(Loss::Closed, "the router does not say which devices there are");
    });
  });
  // What a failed message means is told by the end of the connection.
  const auto router = connection_->remoteObjectProxyWithErrorHandler<WLHIDDeviceDirectoryProtocol>(
      [](const std::shared_ptr<platform::NSError>&) {});
  if (router == nullptr) return;
  router->watchDevicesMatching_excluding_reply(
      arrayOf(filter_.matching), arrayOf(filter_.excluding),
      [onLoop, question = ++question_](const auto& devices, const auto& error) {
        onLoop([devices, error, question](DirectoryConnection& self) {
          if (question != self.question_) return;
          self.loop_.cancel(self.limit_);
          if (devices == nullptr) return self.fail(Loss::Refused, Error(error).what());
          self.take(devicesIn(*devices));
        });
      });
}

void DirectoryConnection::fail(Loss loss, const std::string& why) {
  disconnect();
  if (listedAt_ && Loop::Clock::now() - *listedAt_ > kStable) backoff_.reset();
  listedAt_.reset();
  pause_ = loop_.after(backoff_.next(), [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self != nullptr && !self->isEnded_ && self->connection_ == nullptr) self->connect();
  });
  if (events_.lost) events_.lost(loss, why);
}

void DirectoryConnection::take(const std::vector<Device>& devices) {
  if (!listedAt_) listedAt_ = Loop::Clock::now();
  const bool isFirst = !std::exchange(hasListed_, true);
  if (isFirst) {
    for (const Device& each : devices) known_.emplace(each.id, each);
  } else {
    std::vector<std::uint64_t> gone;
    for (const auto& [id, device] : known_) {
      const bool isThere = std::any_of(devices.begin(), devices.end(),
                                       [id = id](const Device& each) { return each.id == id; });
      if (!isThere) gone.push_back(id);
    }
    for (const std::uint64_t id : gone) takeDeparture(id);
    for (const Device& each : devices) takeOne(each);
  }
  if (events_.listed && !isEnded_) events_.listed(devices, isFirst);
}

void DirectoryConnection::takeOne(const Device& device) {
  const auto [known, isNew] = known_.emplace(device.id, device);
  if (!isNew && known->second == device) return;
  known->second = device;
  const auto& tell = isNew ? events_.arrived : events_.changed;
  if (tell && !isEnded_) tell(device);
}

void DirectoryConnection::takeDeparture(std::uint64_t id) {
  const auto known = known_.find(id);
  if (known == known_.end()) return;
  const Device device = known->second;
  known_.erase(known);
  if (events_.departed && !isEnded_) events_.departed(device);
}

}  // namespace wlhid
