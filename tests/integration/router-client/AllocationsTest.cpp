// SPDX-License-Identifier: Apache-2.0

// How often a client allocates memory for what it receives, from the socket to the delegate. It is
// counted for each thread by itself: the router of the test is in this process, too.
#include <future>
#include <optional>
#include <vector>

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "tests/integration/router-client/RealLayerFixture.h"
#include "tests/support/CountedAllocations.h"

namespace test {
namespace {

using namespace platform;

constexpr std::size_t kMessages = 1000;

/// Counts what is allocated on the connection's queue between the first delivery and the last.
class CountingDelegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                  WLHIDEventRouterClientStatus status) override {
    if (status == WLHIDEventRouterClientStatusRouting) routing_.set_value();
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<NSData>& data,
      std::uint32_t) override {
    if (data->length() > 0) received();
  }
  void hidEventRouterClient_receivedElementValues(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                  const std::shared_ptr<NSArray>& values) override {
    if (values->count() > 0) received();
  }

  [[nodiscard]] bool waitUntilRouting() {
    return routing_.get_future().wait_for(kPatience) == std::future_status::ready;
  }
  /// Nothing if messages are missing.
  [[nodiscard]] std::optional<std::size_t> allocationsOfAllButTheFirst() {
    auto counted = finished_.get_future();
    if (counted.wait_for(kPatience) != std::future_status::ready) return std::nullopt;
    return counted.get();
  }

 private:
  void received() {
    if (++received_ == 1) before_ = testsupport::allocationsOfThisThread();
    if (received_ == kMessages)
      finished_.set_value(testsupport::allocationsOfThisThread() - before_);
  }

  std::size_t received_ = 0;
  std::size_t before_ = 0;
  std::promise<void> routing_;
  std::promise<std::size_t> finished_;
};

class DeliveryAllocations : public RealLayerTest {
 protected:
  void SetUp() override {
    client_ = newClient();
    client_->setDelegate(counting_);
    client_->setStarted(true);
    ASSERT_TRUE(counting_->waitUntilRouting());
  }
  [[nodiscard]] RouterSession& session() { return *routing().at(0); }

  const std::shared_ptr<CountingDelegate> counting_ = std::make_shared<CountingDelegate>();
  const std::vector<std::uint8_t> bytes_ = std::vector<std::uint8_t>(64, 1);
};

TEST_F(DeliveryAllocations, AReportIsOneAllocation) {
  const auto report = NSData::dataWithBytes(bytes_);
  for (std::size_t i = 0; i < kMessages; ++i) session().client->receivedData_forReportID(report, 1);
  EXPECT_EQ(counting_->allocationsOfAllButTheFirst(), kMessages - 1);
}

TEST_F(DeliveryAllocations, AReportOfABatchIsOneAllocation) {
  const auto report = NSData::dataWithBytes(bytes_);
  const auto batch = session().connection->makeBatch();
  const auto client = batch->proxyWithErrorHandler<WLHIDEventRouterClientProtocol>({});
  for (std::size_t i = 0; i < kMessages; ++i) {
    client->receivedData_forReportID(report, 1);
    if (i % 25 == 24) batch->send();
  }
  EXPECT_EQ(counting_->allocationsOfAllButTheFirst(), kMessages - 1);
}

TEST_F(DeliveryAllocations, TheValuesOfAReportAreOneAllocation) {
  const std::vector<HIDElementValueRecord> records(8, HIDElementValueRecord{.bytes = bytes_});
  const auto values = elementValueArray(records);
  for (std::size_t i = 0; i < kMessages; ++i) session().client->receivedElementValues(values);
  EXPECT_EQ(counting_->allocationsOfAllButTheFirst(), kMessages - 1);
}

}  // namespace
}  // namespace test
