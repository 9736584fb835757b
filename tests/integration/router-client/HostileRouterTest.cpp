// SPDX-License-Identifier: Apache-2.0

// A router that violates the classes of the protocol.
#include "platform/xpc/XPCTraits.h"
#include "tests/integration/router-client/RealLayerFixture.h"

namespace test {
namespace {

using namespace platform;

/// The router's protocol as declared by a hostile router: the same selectors, but strings in place
/// of errors or nothing.
class LyingRouterProtocol {
 public:
  using StartReply = std::function<void(const std::shared_ptr<NSString>&)>;
  static const XPCProtocol& protocol();
  virtual ~LyingRouterProtocol() = default;
  virtual void start(std::uint64_t entryID, std::uint64_t mode,
                     const std::shared_ptr<NSDictionary>& tags,
                     const std::shared_ptr<NSDictionary>& types, StartReply reply) = 0;
  virtual void stop() = 0;
};
using LyingMethods =
    XPCMethodList<LyingRouterProtocol, &LyingRouterProtocol::start, &LyingRouterProtocol::stop>;

class LyingProxy final : public LyingRouterProtocol, XPCProxy<LyingMethods> {
 public:
  using XPCProxy::XPCProxy;
  void start(std::uint64_t, std::uint64_t, const std::shared_ptr<NSDictionary>&,
             const std::shared_ptr<NSDictionary>&, StartReply) override {}
  void stop() override {}
};

const XPCProtocol& LyingRouterProtocol::protocol() {
  return xpcProtocol<LyingMethods, LyingProxy>(
      "WLHIDEventRouterProtocol",
      {"startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:",
       "stopRoutingService"});
}

class Liar final : public LyingRouterProtocol {
 public:
  void start(std::uint64_t, std::uint64_t, const std::shared_ptr<NSDictionary>&,
             const std::shared_ptr<NSDictionary>&, StartReply reply) override {
    reply(str("an admitted class, but neither an error nor nothing"));
  }
  void stop() override {}
};

class LiarsListener final : public NSXPCListenerDelegate {
 public:
  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<NSXPCListener>&,
      const std::shared_ptr<NSXPCConnection>& connection) override {
    connection->setExportedInterface(
        NSXPCInterface::interfaceWithProtocol(LyingRouterProtocol::protocol()));
    connection->setExportedObject<LyingRouterProtocol>(liar_);
    const std::lock_guard lock(mutex_);
    connections_.push_back(connection);
    connection->resume();
    return true;
  }

 private:
  std::mutex mutex_;
  std::vector<std::shared_ptr<NSXPCConnection>> connections_;
  const std::shared_ptr<Liar> liar_ = std::make_shared<Liar>();
};

class HostileRouter : public RealLayerTest {};

TEST_F(HostileRouter, AnAnswerThatIsNoErrorIsNotTakenForSuccess) {
  const auto listener = std::make_shared<LiarsListener>();
  router().listener().setDelegate(listener);
  makeClient();
  client_->setStarted(true);
  EXPECT_TRUE(trace().waitForPrefix(startError("Error Domain=NSCocoaErrorDomain Code=4101")));
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusOpening);
}

}  // namespace
}  // namespace test
