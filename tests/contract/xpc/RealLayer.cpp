#include "tests/contract/xpc/Layer.h"
#include "tests/integration/router-client/RouterHarness.h"

namespace test {
namespace {

class RealLayer final : public Layer {
 public:
  RealLayer() { harness_.router().setHoldReplies(true); }
  ~RealLayer() override {
    harness_.router().takeHeldReplies();
    harness_.router().releaseSessions();
    EXPECT_TRUE(waitUntilNoConnectionIsLeft());
  }

  std::shared_ptr<platform::NSXPCConnection> makeConnection() override {
    return platform::NSXPCConnection::initWithMachServiceName_options(
        platform::str(WLHIDEventRouterLabel), 0);
  }
  bool waitForRequest() override { return harness_.router().waitForHeldReply(); }
  void peerReplies(std::shared_ptr<platform::NSError> error) override {
    for (const auto& reply : harness_.router().takeHeldReplies()) reply(error);
  }
  void peerDropsReply() override { harness_.router().takeHeldReplies(); }
  void peerSendsReport(std::uint32_t reportID) override {
    harness_.router().sessions().back()->client->receivedData_forReportID(
        platform::NSData::dataWithBytes({}), reportID);
  }
  void peerSaysFarewell() override { harness_.router().invalidateSessions(); }
  void peerCrashes() override {
    harness_.router().dropSessions();
    harness_.router().takeHeldReplies();  // a process that is gone owes no answer
  }
  void settle() override {}

 private:
  RouterHarness harness_;
};

}  // namespace

std::unique_ptr<Layer> realLayer() {
  return std::make_unique<RealLayer>();
}

}  // namespace test
