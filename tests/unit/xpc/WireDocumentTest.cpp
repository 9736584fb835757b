// SPDX-License-Identifier: Apache-2.0

// The wire page against the code: its examples are what the code writes and accepts, and every
// example is used.
#include "tests/support/WireDocument.h"

#include <functional>
#include <map>
#include <set>

#include "platform/xpc/Hello.h"
#include "platform/xpc/InterfaceTable.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "tests/unit/xpc/CoderSupport.h"

using namespace platform;
using codertest::Bytes;
using codertest::Object;
using testsupport::WireExample;

namespace {

const std::vector<WireExample>& examples() {
  static const auto all = testsupport::wireExamples();
  return all;
}

std::map<std::string, Object> objects() {
  using codertest::data;
  const std::uint8_t one[] = {1};
  Bytes counting(255);
  for (std::size_t i = 0; i < counting.size(); ++i) counting[i] = static_cast<std::uint8_t>(i);
  const HIDElementValueRecord record{0, 9, 1, 1, 1, one};
  return {
      {"nil", nullptr},
      {"data", data({0xDE, 0xAD, 0xBE, 0xEF})},
      {"data-empty", data({})},
      {"data-255", NSData::dataWithBytes(counting)},
      {"string", str("Gr\xC3\xB6\xC3\x9F"
                     "e")},
      {"boolean", NSNumber::numberWithBool(true)},
      {"signed", NSNumber::numberWithLongLong(-2)},
      {"unsigned", NSNumber::numberWithUnsignedLongLong(UINT64_MAX)},
      {"double", NSNumber::numberWithDouble(1.5)},
      {"date", NSDate::dateWithTimeIntervalSinceReferenceDate(0.5)},
      {"url", NSURL::URLWithString(str("file:///tmp"))},
      {"array", NSArray::arrayWithObjects({str("a"), NSNumber::numberWithLongLong(1)})},
      {"mutable-array", NSMutableArray::arrayWithObjects({str("a")})},
      {"mutable-array-empty", NSMutableArray::array()},
      {"dictionary",
       NSDictionary::dictionaryWithEntries({{str("k"), NSNumber::numberWithBool(false)}})},
      {"dictionary-sorted",
       NSDictionary::dictionaryWithEntries(
           {{NSArray::arrayWithObjects({str("a")}), NSNumber::numberWithBool(true)},
            {str("aa"), NSNumber::numberWithBool(false)},
            {str("b"), NSNumber::numberWithBool(true)}})},
      {"error", NSError::errorWithDomain_code_userInfo(str("D"), -1, nullptr)},
      {"error-user-info",
       NSError::errorWithDomain_code_userInfo(
           str("D"), 7,
           NSDictionary::dictionaryWithEntries({{str("k"), NSArray::arrayWithObjects({})}}))},
      {"element-value", KQHIDDeviceElementValue::elementValue(record)},
      {"io-object", KQIOObject::objectWithRegistryEntryID_name(42, nullptr)},
      {"element-value-list", elementValueArray(std::vector{record})},
  };
}

Bytes frame(xpc::FrameKind kind, std::uint16_t method, std::uint64_t id, const XPCValues& values) {
  xpc::WireWriter writer;
  writer.beginFrame(kind, method);
  if (id != 0) writer.u64(id);
  xpc::encodeValues(writer, values);
  writer.finishFrame();
  return {writer.bytes().begin(), writer.bytes().end()};
}

Bytes hello(const std::string& exported, const std::string& remote) {
  xpc::WireWriter writer;
  xpc::writeHello(writer, {xpc::kWireVersion, exported, remote});
  return {writer.bytes().begin(), writer.bytes().end()};
}

template <class... V>
XPCValues pack(V... values) {
  XPCValues packed;
  (packed.append(XPCValue(std::move(values))), ...);
  return packed;
}

Object startFailure() {
  return NSError::errorWithDomain_code_userInfo(
      str(HIDEventRouterDomain), WLHIDEventRouterNotPermitted,
      NSDictionary::dictionaryWithEntries(
          {{str("device"),
            KQIOObject::objectWithRegistryEntryID_name(0x100000abc, str("mouse"))}}));
}

Object twoValues() {
  const std::uint8_t minusOne[] = {0xFF};
  const std::uint8_t zero[] = {0};
  return elementValueArray(std::vector{HIDElementValueRecord{2, 1, 0x30, 4, -1, minusOne},
                                       HIDElementValueRecord{2, 1, 0x31, 5, 0, zero}});
}

std::map<std::string, Bytes> frames() {
  using xpc::FrameKind;
  const std::string client(WLHIDEventRouterClientProtocol::protocol().name);
  const std::string router(WLHIDEventRouterProtocol::protocol().name);
  const Object tags =
      NSDictionary::dictionaryWithEntries({{NSNumber::numberWithLongLong(65542), str("keys")}});
  const Object none;
  return {
      {"hello-client", hello(client, router)},
      {"hello-router", hello(router, client)},
      {"start-request", frame(FrameKind::Request, 0, 1,
                              pack(std::uint64_t{0x100000abc}, std::uint64_t{0}, tags, none))},
      {"start-reply-success", frame(FrameKind::Reply, 0, 1, pack(none))},
      {"start-reply-failure", frame(FrameKind::Reply, 0, 1, pack(startFailure()))},
      {"reply-dropped", frame(FrameKind::ReplyDropped, 0, 1, {})},
      {"stop-message", frame(FrameKind::Message, 1, 0, {})},
      {"received-data", frame(FrameKind::Message, 0, 0,
                              pack(Object(codertest::data({2, 1, 0xFF, 0})), std::uint32_t{2}))},
      {"received-element-values", frame(FrameKind::Message, 1, 0, pack(twoValues()))},
      {"farewell", frame(FrameKind::Farewell, 0, 0, {})},
  };
}

}  // namespace

TEST(WireDocument, AcceptedObjectsAreWhatIsWrittenAndTaken) {
  const auto expected = objects();
  std::set<std::string> seen;
  for (const WireExample& example : examples()) {
    if (example.kind != "object" || example.verdict != "accepted") continue;
    ASSERT_TRUE(expected.contains(example.name)) << example.name;
    seen.insert(example.name);
    const Object& object = expected.at(example.name);
    EXPECT_EQ(codertest::encode(object), example.bytes) << example.name;
    const auto decoded = codertest::decode(example.bytes);
    ASSERT_EQ(decoded.verdict, xpc::DecodeVerdict::Accepted)
        << example.name << ": " << decoded.reason;
    EXPECT_EQ(decoded.left, 0U) << example.name;
    EXPECT_TRUE(object == nullptr ? decoded.object == nullptr : object->isEqual(decoded.object))
        << example.name;
  }
  EXPECT_EQ(seen.size(), expected.size());
}

TEST(WireDocument, AcceptedFramesAreWhatIsWritten) {
  const auto expected = frames();
  std::set<std::string> seen;
  for (const WireExample& example : examples()) {
    if (example.kind != "frame" || example.verdict != "accepted") continue;
    ASSERT_TRUE(expected.contains(example.name)) << example.name;
    seen.insert(example.name);
    EXPECT_EQ(expected.at(example.name), example.bytes) << example.name;
  }
  EXPECT_EQ(seen.size(), expected.size());
}

TEST(WireDocument, RefusedObjectsAreRefusedForTheReasonGiven) {
  std::size_t count = 0;
  for (const WireExample& example : examples()) {
    if (example.kind != "object" || example.verdict != "refused") continue;
    ++count;
    const auto decoded = codertest::decode(example.bytes);
    EXPECT_NE(decoded.verdict, xpc::DecodeVerdict::Accepted) << example.name;
    EXPECT_EQ(decoded.reason, example.reason) << example.name;
  }
  EXPECT_GE(count, 13U);
}
