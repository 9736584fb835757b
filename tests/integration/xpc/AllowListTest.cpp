// SPDX-License-Identifier: Apache-2.0

// What is not admitted is not delivered, and nothing else is affected.
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

class AllowList : public XPCTest {
 protected:
  /// The client accepts only an NSMutableArray of element values.
  void admitElementValuesOnly() {
    const auto interface = NSXPCInterface::interfaceWithProtocol(Talk::protocol());
    interface->setClasses_forSelector_argumentIndex_ofReply(
        {&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()}, "list:", 0,
        false);
    client_.connection->setExportedInterface(interface);
  }
};

std::shared_ptr<NSObject> value() {
  return KQHIDDeviceElementValue::elementValue({});
}

}  // namespace

TEST_F(AllowList, ARefusedDeliveryIsDroppedWithOneLogLineAndTheConnectionLives) {
  admitElementValuesOnly();
  const auto end = connect();
  const auto proxy = end->proxy();
  proxy->list(NSMutableArray::arrayWithObjects({value(), str("x")}));
  proxy->list(NSArray::arrayWithObjects({value()}));
  proxy->list(NSMutableArray::arrayWithObjects({value(), value()}));
  ASSERT_TRUE(client_.log.waitFor("list 2"));
  EXPECT_EQ(client_.log.lines(), Lines({"list 2"}));
  EXPECT_EQ(logged_.linesWith("list: dropped: NSString is not admitted in argument 0"), 1U);
  EXPECT_EQ(logged_.linesWith("list: dropped: NSArray is not admitted in argument 0"), 1U);
  EXPECT_EQ(logged_.lines().size(), 2U);
}

TEST_F(AllowList, NilIsDelivered) {
  admitElementValuesOnly();
  const auto end = connect();
  end->proxy()->list(nullptr);
  EXPECT_TRUE(client_.log.waitFor("list nil"));
}

TEST_F(AllowList, ARefusedReplyBecomesTheErrorHandlerAndTheConnectionLives) {
  const auto end = connect();
  const auto answerWith = [&](const std::shared_ptr<NSObject>& inside, std::size_t asked) {
    client_.ask();
    ASSERT_TRUE(end->log.waitFor("asked", asked));
    end->talker->takeHeld()[0](NSError::errorWithDomain_code_userInfo(
        str("D"), 8, NSDictionary::dictionaryWithEntries({{str("k"), inside}})));
  };
  answerWith(KQIOObject::objectWithRegistryEntryID_name(1, nullptr), 1);
  ASSERT_TRUE(client_.log.waitFor("error 4101"));
  answerWith(str("fine"), 2);
  ASSERT_TRUE(client_.log.waitFor("reply 8"));
  EXPECT_EQ(client_.log.lines(), Lines({"error 4101", "reply 8"}));
}

TEST_F(AllowList, ARefusedRequestIsAnErrorAtItsSender) {
  const auto interface = NSXPCInterface::interfaceWithProtocol(Talk::protocol());
  interface->setClasses_forSelector_argumentIndex_ofReply({}, "echo:reply:", 0, false);
  service_->prepare = [](End&) {};
  const auto end = connect();
  end->connection->setExportedInterface(interface);
  client_.proxy()->echo_reply(
      str("x"), [](const std::shared_ptr<NSString>&) { ADD_FAILURE() << "answered"; });
  EXPECT_TRUE(client_.log.waitFor("error 4101"));
  EXPECT_TRUE(client_.log.count("error 4101") == 1U);
}
