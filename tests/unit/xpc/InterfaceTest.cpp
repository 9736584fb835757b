// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/InterfaceTable.h"

#include <algorithm>
#include <array>

#include "router-client/WLHIDEventRouterProtocols.h"
#include "tests/unit/xpc/CoderSupport.h"

using namespace platform;
using codertest::Object;

namespace {

constexpr std::string_view kStart =
    "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:";

std::shared_ptr<NSXPCInterface> interface(const XPCProtocol& protocol) {
  return NSXPCInterface::interfaceWithProtocol(protocol);
}

xpc::DecodeVerdict verdict(const std::vector<xpc::ArgumentRule>& rules, const XPCValues& sent) {
  xpc::WireWriter writer;
  xpc::encodeValues(writer, sent);
  xpc::WireReader reader(writer.bytes());
  XPCValues received;
  return xpc::decodeValues(reader, rules, received).verdict;
}

XPCValues one(Object object) {
  XPCValues values;
  values.append(std::move(object));
  return values;
}

}  // namespace

std::shared_ptr<NSXPCInterface> elementValuesInterface() {
  const auto made = interface(WLHIDEventRouterClientProtocol::protocol());
  made->setClasses_forSelector_argumentIndex_ofReply(
      {&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()},
      "receivedElementValues:", 0, false);
  return made;
}

TEST(Protocol, MethodsAreDescribedByTheirClass) {
  const XPCProtocol& router = WLHIDEventRouterProtocol::protocol();
  EXPECT_EQ(router.name, "WLHIDEventRouterProtocol");
  ASSERT_EQ(router.methods.size(), 2U);
  EXPECT_EQ(router.methods[0].selector, kStart);
  EXPECT_TRUE(router.methods[0].hasReply);
  ASSERT_EQ(router.methods[0].arguments.size(), 4U);
  EXPECT_EQ(router.methods[0].arguments[0].kind, XPCArgumentKind::UInt64);
  EXPECT_EQ(router.methods[0].arguments[3].declaredClass, &NSDictionary::classObject());
  ASSERT_EQ(router.methods[0].replyArguments.size(), 1U);
  EXPECT_EQ(router.methods[0].replyArguments[0].declaredClass, &NSError::classObject());
  EXPECT_FALSE(router.methods[1].hasReply);
  const XPCProtocol& client = WLHIDEventRouterClientProtocol::protocol();
  ASSERT_EQ(client.methods[0].arguments.size(), 2U);
  EXPECT_EQ(client.methods[0].arguments[1].kind, XPCArgumentKind::UInt32);
}

TEST(Protocol, ASelectorThatIsNotItsOwnThrows) {
  EXPECT_EQ(WLHIDEventRouterClientProtocol::protocol().indexOfSelector("receivedElementValues:"),
            1U);
  EXPECT_THROW(static_cast<void>(WLHIDEventRouterClientProtocol::protocol().indexOfSelector(
                   "receivedElementValues")),
               std::invalid_argument);
}

TEST(Interface, AnUnknownSelectorOrIndexThrows) {
  const auto made = interface(WLHIDEventRouterClientProtocol::protocol());
  EXPECT_THROW(made->setClasses_forSelector_argumentIndex_ofReply({}, "nothing:", 0, false),
               std::invalid_argument);
  EXPECT_THROW(
      made->setClasses_forSelector_argumentIndex_ofReply({}, "receivedElementValues:", 1, false),
      std::invalid_argument);
  EXPECT_THROW(
      made->setClasses_forSelector_argumentIndex_ofReply({}, "receivedElementValues:", 0, true),
      std::invalid_argument);
}

TEST(Interface, ByDefaultCollectionsHoldPropertyListObjects) {
  const xpc::InterfaceTable table(interface(WLHIDEventRouterProtocol::protocol()));
  const std::vector<xpc::ArgumentRule> dictionary{table.methods()[0].arguments[2]};
  const auto holding = [](Object value) {
    return one(NSDictionary::dictionaryWithEntries({{str("k"), std::move(value)}}));
  };
  EXPECT_EQ(verdict(dictionary, holding(NSNumber::numberWithBool(true))),
            xpc::DecodeVerdict::Accepted);
  EXPECT_EQ(verdict(dictionary, holding(NSMutableArray::array())), xpc::DecodeVerdict::Accepted);
  EXPECT_EQ(verdict(dictionary, holding(NSURL::URLWithString(str("a:b")))),
            xpc::DecodeVerdict::Refused);
  EXPECT_EQ(verdict(dictionary, one(nullptr)), xpc::DecodeVerdict::Accepted);
}

TEST(Interface, TheOutermostObjectIsOfTheDeclaredClassWhateverTheSetSays) {
  const xpc::InterfaceTable table(interface(WLHIDEventRouterProtocol::protocol()));
  const std::vector<xpc::ArgumentRule> dictionary{table.methods()[0].arguments[2]};
  EXPECT_EQ(verdict(dictionary, one(str("a string"))), xpc::DecodeVerdict::Refused);
}

TEST(Interface, ASetReplacesTheDefault) {
  const xpc::InterfaceTable table(elementValuesInterface());
  const auto& rules = table.methods()[1].arguments;
  const auto value = KQHIDDeviceElementValue::elementValue({});
  EXPECT_EQ(verdict(rules, one(NSMutableArray::arrayWithObjects({value}))),
            xpc::DecodeVerdict::Accepted);
  EXPECT_EQ(verdict(rules, one(NSMutableArray::array())), xpc::DecodeVerdict::Accepted);
  EXPECT_EQ(verdict(rules, one(NSArray::arrayWithObjects({value}))), xpc::DecodeVerdict::Refused);
  EXPECT_EQ(verdict(rules, one(NSMutableArray::arrayWithObjects({value, str("x")}))),
            xpc::DecodeVerdict::Refused);
  EXPECT_EQ(verdict(rules, one(value)), xpc::DecodeVerdict::Refused);
}

TEST(Interface, AnArrayInsideTheElementValuesIsNotAdmitted) {
  const xpc::InterfaceTable table(elementValuesInterface());
  const auto& rules = table.methods()[1].arguments;
  const auto value = KQHIDDeviceElementValue::elementValue({});
  const auto array = [](std::vector<Object> members) {
    return NSMutableArray::arrayWithObjects(std::move(members));
  };
  for (const Object& inside : {Object(array({value})), Object(array({}))}) {
    EXPECT_EQ(verdict(rules, one(array({inside}))), xpc::DecodeVerdict::Refused);
    EXPECT_EQ(verdict(rules, one(array({value, inside}))), xpc::DecodeVerdict::Refused);
    EXPECT_EQ(verdict(rules, one(array({array({inside})}))), xpc::DecodeVerdict::Refused);
  }
  EXPECT_EQ(verdict(rules, one(array({value, value}))), xpc::DecodeVerdict::Accepted);
}

TEST(Interface, ArgumentsAreWrittenAlikeWhereTheirSenderHasThem) {
  const std::shared_ptr<NSString> text = str("text");
  const std::uint32_t small = 0x01020304;
  const std::uint64_t large = 0x1112131415161718;
  XPCValues values;
  values.append(small);
  values.append(large);
  values.append(Object(text));
  xpc::WireWriter one;
  xpc::encodeValues(one, values);
  const std::array<XPCArgumentRef, 3> arguments{small, large, text};
  xpc::WireWriter other;
  xpc::encodeValues(other, arguments);
  EXPECT_TRUE(std::ranges::equal(one.bytes(), other.bytes()));
  EXPECT_EQ(other.size(), 4U + 8U + 6U);
}

TEST(Interface, WhatAnArraysMembersAreHoldsWithoutASetToo) {
  const xpc::InterfaceTable table(interface(WLHIDEventRouterClientProtocol::protocol()));
  const auto& rules = table.methods()[1].arguments;
  EXPECT_EQ(verdict(rules, one(NSArray::arrayWithObjects({}))), xpc::DecodeVerdict::Accepted);
  EXPECT_EQ(verdict(rules, one(NSArray::arrayWithObjects({str("x")}))),
            xpc::DecodeVerdict::Refused);
}

TEST(Interface, AStartRepliesSetAdmitsItsNineClassesAndNoOthers) {
  const auto made = interface(WLHIDEventRouterProtocol::protocol());
  made->setClasses_forSelector_argumentIndex_ofReply(
      {&NSData::classObject(), &NSArray::classObject(), &NSNumber::classObject(),
       &NSError::classObject(), &NSString::classObject(), &NSDictionary::classObject(),
       &NSDate::classObject(), &NSURL::classObject(), &KQIOObject::classObject()},
      kStart, 0, true);
  const xpc::InterfaceTable table(made);
  const auto& rules = table.methods()[0].reply;
  const auto error = [](Object inside) {
    return one(NSError::errorWithDomain_code_userInfo(
        str("D"), 1, NSDictionary::dictionaryWithEntries({{str("k"), std::move(inside)}})));
  };
  const std::vector<Object> admitted = {
      codertest::data({1}),
      NSArray::arrayWithObjects({}),
      NSMutableArray::array(),
      NSNumber::numberWithBool(true),
      NSError::errorWithDomain_code_userInfo(str("E"), 2, nullptr),
      str("s"),
      NSDictionary::dictionary(),
      NSDate::dateWithTimeIntervalSinceReferenceDate(0),
      NSURL::URLWithString(str("a:b")),
      KQIOObject::objectWithRegistryEntryID_name(1, nullptr)};
  for (const Object& each : admitted)
    EXPECT_EQ(verdict(rules, error(each)), xpc::DecodeVerdict::Accepted) << descriptionOf(each);
  EXPECT_EQ(verdict(rules, error(KQHIDDeviceElementValue::elementValue({}))),
            xpc::DecodeVerdict::Refused);
  EXPECT_EQ(verdict(rules, one(str("no error"))), xpc::DecodeVerdict::Refused);
}
