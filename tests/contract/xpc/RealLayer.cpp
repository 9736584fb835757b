// SPDX-License-Identifier: Apache-2.0

#include "tests/contract/xpc/Layer.h"
#include "tests/integration/router-client/RouterHarness.h"

namespace test {
namespace {

class RealLayer final : public Layer {
 public:
  RealLayer() { harness_.answers().setHoldReplies(true); }
  ~RealLayer() override {
    harness_.answers().takeHeldReplies();
    harness_.router().dropSessions();
    EXPECT_TRUE(waitUntilNoConnectionIsLeft());
  }

  std::shared_ptr<platform::NSXPCConnection> makeConnection() override {
    return platform::NSXPCConnection::initWithMachServiceName_options(
        platform::str(WLHIDEventRouterLabel), 0);
  }
  bool waitForRequest() override {
    if (!harness_.answers().waitForHeldReply()) return false;
    newest_ = harness_.router().sessions().back();
    return true;
  }
  void peerReplies(std::shared_ptr<platform::NSError> error) override {
    for (const auto& reply : harness_.answers().takeHeldReplies()) reply(error);
  }
  void peerDropsReply() override { harness_.answers().takeHeldReplies(); }
  void peerSendsReport(std::uint32_t reportID) override {
    if (const auto session = newest_.lock())
      session->client->receivedData_forReportID(platform::NSData::dataWithBytes({}), reportID);
  }
  void peerSendsElementValues(std::shared_ptr<platform::NSArray> values) override {
    if (const auto session = newest_.lock()) session->client->receivedElementValues(values);
  }
  void peerSaysFarewell() override { harness_.router().invalidateSessions(); }
  void peerCrashes() override {
    // A process that no longer exists owes no answer, not even the reply-dropped frame that a reply
    // released before its connection would send.
    unanswered_ = harness_.answers().takeHeldReplies();
    harness_.router().dropSessions();
  }
  void settle() override {}

 private:
  RouterHarness harness_;
  std::weak_ptr<RouterSession> newest_;  ///< expires with its connection
  std::vector<WLHIDEventRouterProtocol::StartReply> unanswered_;
};

}  // namespace

std::unique_ptr<Layer> realLayer() {
  return std::make_unique<RealLayer>();
}

}  // namespace test
