// SPDX-License-Identifier: Apache-2.0

// The two protocols as data, and the glue between messages and methods.
#include <gtest/gtest.h>

#include <optional>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSString.h"
#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace test {
namespace {

using namespace platform;

/// Keeps the last message.
class RecordingSink final : public XPCMessageSink {
 public:
  void send(std::size_t sentMethod, const XPCValues& sentArguments,
            XPCReplyHandler sentReply) override {
    method = sentMethod;
    arguments = sentArguments;
    reply = std::move(sentReply);
  }
  std::optional<std::size_t> method;
  XPCValues arguments;
  XPCReplyHandler reply;
};

class Router final : public WLHIDEventRouterProtocol {
 public:
  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<NSDictionary>& tagDictionary,
      const std::shared_ptr<NSDictionary>& typeDictionary, StartReply startReply) override {
    id = entryID;
    mode = deviceMode;
    tags = tagDictionary;
    types = typeDictionary;
    reply = std::move(startReply);
  }
  void stopRoutingService() override { ++stops; }

  std::uint64_t id = 0;
  std::uint64_t mode = 0;
  std::shared_ptr<NSDictionary> tags;
  std::shared_ptr<NSDictionary> types;
  StartReply reply;
  int stops = 0;
};

class Client final : public WLHIDEventRouterClientProtocol {
 public:
  void receivedData_forReportID(const std::shared_ptr<NSData>& newData,
                                std::uint32_t newReportID) override {
    data = newData;
    reportID = newReportID;
  }
  void receivedElementValues(const std::shared_ptr<NSArray>& newValues) override {
    values = newValues;
  }

  std::shared_ptr<NSData> data;
  std::uint32_t reportID = 0;
  std::shared_ptr<NSArray> values;
};

template <class Protocol>
std::shared_ptr<Protocol> proxy(const std::shared_ptr<XPCMessageSink>& sink) {
  return std::static_pointer_cast<Protocol>(Protocol::protocol().makeProxy(sink));
}

template <class Protocol>
void invoke(Protocol& receiver, std::size_t method, const XPCValues& arguments,
            const XPCReplySender& reply = nullptr) {
  Protocol::protocol().invoke(&receiver, method, arguments, reply);
}

std::shared_ptr<NSError> error(std::int64_t code) {
  return NSError::errorWithDomain_code_userInfo(str(HIDEventRouterDomain), code, nullptr);
}

TEST(RouterProtocol, HasTheTwoMethodsWithTheirArguments) {
  const XPCProtocol& protocol = WLHIDEventRouterProtocol::protocol();
  EXPECT_EQ(protocol.name, "WLHIDEventRouterProtocol");
  ASSERT_EQ(protocol.methods.size(), 2U);
  const XPCMethod& start = protocol.methods[0];
  EXPECT_EQ(start.selector,
            "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:");
  ASSERT_EQ(start.arguments.size(), 4U);
  EXPECT_EQ(start.arguments[0].kind, XPCArgumentKind::UInt64);
  EXPECT_EQ(start.arguments[1].kind, XPCArgumentKind::UInt64);
  EXPECT_EQ(start.arguments[2].declaredClass, &NSDictionary::classObject());
  EXPECT_EQ(start.arguments[3].declaredClass, &NSDictionary::classObject());
  EXPECT_TRUE(start.hasReply);
  ASSERT_EQ(start.replyArguments.size(), 1U);
  EXPECT_EQ(start.replyArguments[0].declaredClass, &NSError::classObject());
  const XPCMethod& stop = protocol.methods[1];
  EXPECT_EQ(stop.selector, "stopRoutingService");
  EXPECT_TRUE(stop.arguments.empty());
  EXPECT_FALSE(stop.hasReply);
}

TEST(ClientProtocol, HasTheTwoOneWayMethodsWithAThirtyTwoBitReportID) {
  const XPCProtocol& protocol = WLHIDEventRouterClientProtocol::protocol();
  EXPECT_EQ(protocol.name, "WLHIDEventRouterClientProtocol");
  ASSERT_EQ(protocol.methods.size(), 2U);
  EXPECT_EQ(protocol.methods[0].selector, "receivedData:forReportID:");
  ASSERT_EQ(protocol.methods[0].arguments.size(), 2U);
  EXPECT_EQ(protocol.methods[0].arguments[0].declaredClass, &NSData::classObject());
  EXPECT_EQ(protocol.methods[0].arguments[1].kind, XPCArgumentKind::UInt32);
  EXPECT_EQ(protocol.methods[1].selector, "receivedElementValues:");
  ASSERT_EQ(protocol.methods[1].arguments.size(), 1U);
  EXPECT_EQ(protocol.methods[1].arguments[0].declaredClass, &NSArray::classObject());
  EXPECT_FALSE(protocol.methods[0].hasReply);
  EXPECT_FALSE(protocol.methods[1].hasReply);
}

TEST(RouterProtocol, AStartRequestArrivesAsItWasSent) {
  const auto sink = std::make_shared<RecordingSink>();
  const auto tags = NSDictionary::dictionary();
  proxy<WLHIDEventRouterProtocol>(sink)
      ->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
          0x1'0000'0001, 2, tags, nullptr, [](const auto&) {});
  Router router;
  invoke<WLHIDEventRouterProtocol>(router, sink->method.value(), sink->arguments);
  EXPECT_EQ(router.id, 0x1'0000'0001U);
  EXPECT_EQ(router.mode, 2U);
  EXPECT_EQ(router.tags, tags);
  EXPECT_EQ(router.types, nullptr);
}

TEST(RouterProtocol, TheReplyTravelsBack) {
  const auto sink = std::make_shared<RecordingSink>();
  std::vector<std::shared_ptr<NSError>> answers;
  proxy<WLHIDEventRouterProtocol>(sink)
      ->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
          1, 0, nullptr, nullptr, [&answers](const auto& answer) { answers.push_back(answer); });
  Router router;
  invoke<WLHIDEventRouterProtocol>(router, 0, sink->arguments, sink->reply);
  const auto refused = error(-1);
  router.reply(refused);
  router.reply(nullptr);
  ASSERT_EQ(answers.size(), 2U);  // the connection ensures "once"
  EXPECT_EQ(answers[0], refused);
  EXPECT_EQ(answers[1], nullptr);
}

TEST(RouterProtocol, StopIsOneWay) {
  const auto sink = std::make_shared<RecordingSink>();
  proxy<WLHIDEventRouterProtocol>(sink)->stopRoutingService();
  EXPECT_EQ(sink->method, 1U);
  EXPECT_EQ(sink->arguments.count, 0U);
  EXPECT_FALSE(sink->reply);
  Router router;
  invoke<WLHIDEventRouterProtocol>(router, 1, sink->arguments);
  EXPECT_EQ(router.stops, 1);
}

TEST(ClientProtocol, AReportArrivesAsTheSameObject) {
  const auto sink = std::make_shared<RecordingSink>();
  const std::uint8_t byte = 7;
  const auto data = NSData::dataWithBytes({&byte, 1});
  proxy<WLHIDEventRouterClientProtocol>(sink)->receivedData_forReportID(data, 0xFFFFFFFF);
  Client client;
  invoke<WLHIDEventRouterClientProtocol>(client, sink->method.value(), sink->arguments);
  EXPECT_EQ(client.data, data);
  EXPECT_EQ(client.reportID, 0xFFFFFFFF);
}

TEST(ClientProtocol, AMutableArrayArrivesAsAnArray) {
  const auto sink = std::make_shared<RecordingSink>();
  const auto array = NSMutableArray::array();
  proxy<WLHIDEventRouterClientProtocol>(sink)->receivedElementValues(array);
  Client client;
  invoke<WLHIDEventRouterClientProtocol>(client, sink->method.value(), sink->arguments);
  EXPECT_EQ(client.values, array);
}

TEST(RouterProtocol, Constants) {
  EXPECT_EQ(WLHIDEventRouterLabel, "com.quillmar.hideventrouter");
  EXPECT_EQ(HIDEventRouterDomain, "HIDEventRouterDomain");
  EXPECT_EQ(WLHIDEventRouterNotPermitted,
            static_cast<std::int64_t>(static_cast<std::int32_t>(0xE00002E2)));
}

}  // namespace
}  // namespace test
