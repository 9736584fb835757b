// SPDX-License-Identifier: Apache-2.0

// An application's own router, with one device, 0x2a: a dial that turns by itself. CMakeLists.txt
// packs it as a helper image, application.cpp brings it along, and the job daemon starts it when
// somebody connects.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/foundation/NSString.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/xpc/NSXPCListener.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace {

using namespace std::chrono_literals;
using platform::NSXPCConnection;
using platform::NSXPCInterface;

constexpr std::uint64_t kDial = 0x2a;
constexpr std::int64_t kNoDevice = -536870208;

/// What one client may call.
class Session final : public WLHIDEventRouterProtocol {
 public:
  explicit Session(NSXPCConnection& connection)
      : client_(connection.remoteObjectProxyWithErrorHandler<WLHIDEventRouterClientProtocol>({})) {}

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t device, std::uint64_t, const std::shared_ptr<platform::NSDictionary>&,
      const std::shared_ptr<platform::NSDictionary>&, StartReply reply) override {
    reply(device == kDial ? nullptr
                          : platform::NSError::errorWithDomain_code_userInfo(
                                platform::str(HIDEventRouterDomain), kNoDevice, nullptr));
    isRouting_ = device == kDial;
  }
  void stopRoutingService() override { isRouting_ = false; }

  void turnTo(std::uint8_t position) const {
    if (!isRouting_) return;
    const std::array<std::uint8_t, 1> report{position};
    const platform::HIDElementValueRecord dial{
        .usagePage = 1, .usage = 0x37, .cookie = 1, .integerValue = position, .bytes = report};
    client_->receivedData_forReportID(platform::NSData::dataWithBytes(report), 0);
    client_->receivedElementValues(platform::elementValueArray({&dial, 1}));
  }

 private:
  const std::shared_ptr<WLHIDEventRouterClientProtocol> client_;
  std::atomic<bool> isRouting_{false};
};

/// The clients; a connection lasts as long as it is kept.
class Clients final : public platform::NSXPCListenerDelegate {
 public:
  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>&,
      const std::shared_ptr<NSXPCConnection>& connection) override {
    connection->setExportedInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()));
    connection->setRemoteObjectInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
    const auto session = std::make_shared<Session>(*connection);
    connection->setExportedObject<WLHIDEventRouterProtocol>(session);
    connection->setInvalidationHandler([this, left = session.get()] { forget(left); });
    const std::lock_guard lock(mutex_);
    all_.push_back({connection, session});
    connection->resume();
    return true;
  }

  [[nodiscard]] bool isEmpty() {
    const std::lock_guard lock(mutex_);
    return all_.empty();
  }
  void turnTo(std::uint8_t position) {
    const std::lock_guard lock(mutex_);
    for (const Client& client : all_) client.session->turnTo(position);
  }

 private:
  struct Client {
    std::shared_ptr<NSXPCConnection> connection;
    std::shared_ptr<Session> session;
  };

  void forget(const Session* left) {
    std::vector<Client> gone;  // released after the lock
    const std::lock_guard lock(mutex_);
    const auto begin = std::partition(all_.begin(), all_.end(), [&](const Client& client) {
      return client.session.get() != left;
    });
    gone.assign(begin, all_.end());
    all_.erase(begin, all_.end());
  }

  std::mutex mutex_;
  std::vector<Client> all_;
};

}  // namespace

int main() {
  const auto listener =
      platform::NSXPCListener::initWithMachServiceName(platform::str(WLHIDEventRouterLabel));
  if (listener == nullptr) return 1;  // nobody has passed a socket
  const auto clients = std::make_shared<Clients>();
  listener->setDelegate(clients);
  listener->resume();
  std::uint8_t position = 0;
  for (auto idle = 0ms; idle < 5s; idle = clients->isEmpty() ? idle + 50ms : 0ms) {
    std::this_thread::sleep_for(50ms);
    clients->turnTo(position++);
  }
}
