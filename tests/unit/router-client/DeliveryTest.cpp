// SPDX-License-Identifier: Apache-2.0

// Reports and element values: to the delegate, or to the log.
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

using platform::KQHIDDeviceElementValue;
using platform::NSArray;
using platform::NSData;
using platform::NSMutableArray;

class OnlyReports final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<NSData>&,
      std::uint32_t) override {
    ++reports;
  }
  int reports = 0;
};

class OnlyElementValues final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_receivedElementValues(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                  const std::shared_ptr<NSArray>&) override {
    ++arrays;
  }
  int arrays = 0;
};

class Delivery : public ClientTest {
 protected:
  static std::shared_ptr<NSData> bytes(std::initializer_list<std::uint8_t> list) {
    return NSData::dataWithBytes(std::span<const std::uint8_t>(list.begin(), list.size()));
  }
  static std::shared_ptr<KQHIDDeviceElementValue> value(std::uint32_t usage, std::int64_t integer,
                                                        std::uint64_t cookie = 3) {
    static constexpr std::uint8_t field[] = {0x2a};
    return KQHIDDeviceElementValue::elementValue({5, 1, usage, cookie, integer, field});
  }
  static std::string reportLine(const std::string& text) {
    return logLine(0, "receivedData:forReportID:]", 314, text);
  }
  static std::string valueLine(const std::string& text) {
    return logLine(0, "receivedElementValues:]", 328, "Received HID report " + text);
  }
};

TEST_F(Delivery, AReportReachesTheDelegateOnceAsTheSameObjectAndIsNotLogged) {
  makeRoutingClient();
  const auto data = bytes({1, 2, 3});
  inside(*client_).receivedData_forReportID(data, 9);
  EXPECT_TRUE(sameTrace({"delegate receivedReportData {length = 3, bytes = 0x010203} 9"}, taken()));
  EXPECT_EQ(delegate_->lastData, data);
}

TEST_F(Delivery, TheReportIDHasThirtyTwoBits) {
  makeRoutingClient();
  inside(*client_).receivedData_forReportID(bytes({1}), 0xFFFFFFFF);
  EXPECT_EQ(taken().back(), "delegate receivedReportData {length = 1, bytes = 0x01} 4294967295");
}

TEST_F(Delivery, AReportThatNobodyTakesIsLoggedAtLevelZeroOnly) {
  makeRoutingClient();
  const auto delegate = std::make_shared<OnlyElementValues>();
  client_->setDelegate(delegate);
  inside(*client_).receivedData_forReportID(bytes({0xab}), 0xFFFFFFFF);
  EXPECT_TRUE(sameTrace(
      {reportLine("Received for reportID 4294967295: {length = 1, bytes = 0xab}")}, taken()));
  platform_.setLogLevel(1);
  inside(*client_).receivedData_forReportID(bytes({0xab}), 1);
  EXPECT_TRUE(sameTrace({}, taken()));
  EXPECT_EQ(delegate->arrays, 0);
}

TEST_F(Delivery, ElementValuesThatNobodyTakesAreLoggedAtLevelZeroOnly) {
  makeRoutingClient();
  const auto delegate = std::make_shared<OnlyReports>();
  client_->setDelegate(delegate);
  const auto array = NSArray::arrayWithObjects({value(48, -1)});
  inside(*client_).receivedElementValues(array);
  EXPECT_TRUE(sameTrace(
      {valueLine(
          "5: usage=48, usagePage=1, cookie=3, integerValue=-1, bytes={length = 1, bytes = 0x2a}")},
      taken()));
  platform_.setLogLevel(1);
  inside(*client_).receivedElementValues(array);
  EXPECT_TRUE(sameTrace({}, taken()));
  EXPECT_EQ(delegate->reports, 0);
}

TEST_F(Delivery, ThreeElementValuesGiveThreeLinesInOrderAndNoneGivesNone) {
  client_ = newClient();
  taken();
  inside(*client_).receivedElementValues(
      NSArray::arrayWithObjects({value(48, 1), value(49, 2), value(50, 3)}));
  const std::string tail = ", bytes={length = 1, bytes = 0x2a}";
  EXPECT_TRUE(sameTrace({valueLine("5: usage=48, usagePage=1, cookie=3, integerValue=1" + tail),
                         valueLine("5: usage=49, usagePage=1, cookie=3, integerValue=2" + tail),
                         valueLine("5: usage=50, usagePage=1, cookie=3, integerValue=3" + tail)},
                        taken()));
  inside(*client_).receivedElementValues(NSArray::arrayWithObjects({}));
  EXPECT_TRUE(sameTrace({}, taken()));
}

TEST_F(Delivery, AnEmptyArrayIsHandedOnAsItIs) {
  makeRoutingClient();
  const auto array = NSMutableArray::array();
  inside(*client_).receivedElementValues(array);
  EXPECT_EQ(delegate_->lastElementValues, array);
  EXPECT_TRUE(sameTrace({"delegate receivedElementValues 0"}, taken()));
}

TEST_F(Delivery, InputIsDeliveredInAnyStatus) {
  makeClient();
  for (const auto status : {WLHIDEventRouterClientStatusIdle, WLHIDEventRouterClientStatusOpening,
                            WLHIDEventRouterClientStatusFailed}) {
    client_->setClientStatus(status);
    taken();
    inside(*client_).receivedData_forReportID(bytes({1}), 1);
    inside(*client_).receivedElementValues(NSArray::arrayWithObjects({value(48, 1)}));
    EXPECT_TRUE(sameTrace({"delegate receivedReportData {length = 1, bytes = 0x01} 1",
                           "delegate receivedElementValues 1"},
                          taken()));
  }
}

TEST_F(Delivery, OnceTheDelegateIsGoneInputIsLoggedOrDropped) {
  makeRoutingClient();
  delegate_.reset();
  inside(*client_).receivedData_forReportID(bytes({1}), 1);
  inside(*client_).receivedElementValues(NSArray::arrayWithObjects({value(48, 1)}));
  EXPECT_EQ(taken().size(), 2U);
  platform_.setLogLevel(1);
  inside(*client_).receivedData_forReportID(bytes({1}), 1);
  inside(*client_).receivedElementValues(NSArray::arrayWithObjects({value(48, 1)}));
  EXPECT_EQ(taken().size(), 0U);
}

TEST_F(Delivery, ACookieBeyondThirtyTwoBitsIsNarrowed) {
  client_ = newClient();
  taken();
  inside(*client_).receivedElementValues(NSArray::arrayWithObjects({value(48, 1, 0x1'0000'0007)}));
  EXPECT_TRUE(sameTrace(
      {valueLine(
          "5: usage=48, usagePage=1, cookie=7, integerValue=1, bytes={length = 1, bytes = 0x2a}")},
      taken()));
}

TEST_F(Delivery, IntegersKeepAllSixtyFourBits) {
  client_ = newClient();
  taken();
  inside(*client_).receivedElementValues(NSArray::arrayWithObjects({value(48, INT64_MIN)}));
  EXPECT_NE(taken().at(0).find("integerValue=-9223372036854775808"), std::string::npos);
}

TEST_F(Delivery, MembersThatAreNoElementValuesAreSpokenToLikeNil) {
  client_ = newClient();
  taken();
  inside(*client_).receivedElementValues(NSArray::arrayWithObjects({platform::str("not a value")}));
  EXPECT_TRUE(sameTrace(
      {valueLine("0: usage=0, usagePage=0, cookie=0, integerValue=0, bytes=(null)")}, taken()));
}

TEST_F(Delivery, NullIsWalkedAsNil) {
  client_ = newClient();
  taken();
  inside(*client_).receivedElementValues(nullptr);
  inside(*client_).receivedData_forReportID(nullptr, 1);
  EXPECT_TRUE(sameTrace({reportLine("Received for reportID 1: (null)")}, taken()));
}

TEST_F(Delivery, AnArrayThatChangesDuringTheWalkRaises) {
  client_ = newClient();
  const auto array = NSMutableArray::arrayWithObjects({value(48, 1), value(49, 2)});
  int lines = 0;
  auto& logger = platform::KQLogger::sharedLogger();
  const auto previous =
      logger.setSink(std::make_shared<platform::KQLogSink>([&](const platform::KQLogEntry&) {
        if (lines++ == 0) array->addObject(value(50, 3));
      }));
  EXPECT_THROW(inside(*client_).receivedElementValues(array), platform::NSGenericException);
  logger.setSink(previous);
}

TEST_F(Delivery, TheLevelIsReadForEachElementAndTheWalkRunsToTheEnd) {
  client_ = newClient();
  int lines = 0;
  auto& logger = platform::KQLogger::sharedLogger();
  const auto previous =
      logger.setSink(std::make_shared<platform::KQLogSink>([&](const platform::KQLogEntry&) {
        ++lines;
        platform::KQLogger::setLogLevel(1);
      }));
  inside(*client_).receivedElementValues(NSArray::arrayWithObjects({value(48, 1), value(49, 2)}));
  logger.setSink(previous);
  EXPECT_EQ(lines, 1);
}

TEST_F(Delivery, NothingOfTheDictionariesFiltersInput) {
  makeRoutingClient();  // its tag dictionary names one usage
  inside(*client_).receivedElementValues(NSArray::arrayWithObjects({value(99, 1)}));
  EXPECT_TRUE(sameTrace({"delegate receivedElementValues 1"}, taken()));
}

}  // namespace
}  // namespace test
