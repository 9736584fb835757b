// SPDX-License-Identifier: Apache-2.0

// A client on the real connection layer, with a router in this process; files and jobs are
// scripted.
//
// Threading: the test's thread, and the queues of the connections.
#pragma once

#include <thread>

#include "platform/foundation/NSNumber.h"
#include "platform/xpc/NSXPCConnection.h"
#include "tests/integration/router-client/RouterHarness.h"
#include "tests/support/ClientTrace.h"

namespace test {

class RealLayerTest : public ::testing::Test {
 protected:
  RealLayerTest() {
    platform::xpcProvider().exchange(realConnections_);
    platform_.setBundleCopy(kLabel, "7");
    platform_.installHelper(kLabel, "7");
  }
  ~RealLayerTest() override {
    client_.reset();
    router().dropSessions();
    EXPECT_TRUE(waitUntilNoConnectionIsLeft());
  }

  std::shared_ptr<WLHIDEventRouterClient> newClient() {
    return WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
        kEntryID, kDeviceMode, tags_, nullptr);
  }
  void makeClient() {
    client_ = newClient();
    delegate_ = std::make_shared<RecordingDelegate>(platform_.trace());
    client_->setDelegate(delegate_);
    platform_.trace().take();
  }
  void makeRoutingClient() {
    makeClient();
    client_->setStarted(true);
    ASSERT_TRUE(trace().waitFor("delegate clientStatusChangedTo 4"));
    queue_ = delegate_->lastStatusThread;
    trace().take();
  }

  /// The queue keeps the client alive while it delivers; after this only the test does.
  [[nodiscard]] bool waitUntilOnlyOursHolds() const {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (client_.use_count() != 1) {
      if (std::chrono::steady_clock::now() > limit) return false;
      std::this_thread::yield();
    }
    return true;
  }

  platform::Trace& trace() { return platform_.trace(); }
  TestRouter& router() { return harness_.router(); }
  StartAnswers& answers() { return harness_.answers(); }
  /// Sessions that have started and not ended.
  TestRouter::Sessions routing() {
    TestRouter::Sessions found = router().sessions();
    std::erase_if(found, [](const auto& session) { return session->starts == 0; });
    return found;
  }
  Lines here() { return trace().linesOfThread(std::this_thread::get_id()); }
  Lines onQueue() { return trace().linesOfThread(queue_); }

  const std::shared_ptr<platform::XPCProvider> realConnections_ = platform::xpcProvider().load();
  platform::ScriptedPlatform platform_;
  RouterHarness harness_;
  std::shared_ptr<platform::NSDictionary> tags_ = platform::NSDictionary::dictionaryWithEntries(
      {{platform::NSNumber::numberWithUnsignedLongLong(65536), platform::str("tag")}});
  std::shared_ptr<WLHIDEventRouterClient> client_;
  std::shared_ptr<RecordingDelegate> delegate_;
  std::thread::id queue_;
};

}  // namespace test
