// SPDX-License-Identifier: Apache-2.0

#include "platform/services/DeviceGrants.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/services/ServiceError.h"

namespace {

using platform::DeviceGrant;
using platform::DeviceIdentity;
using platform::encodeDeviceGrants;
using platform::parseDeviceGrants;

const DeviceIdentity kSwitch{3, 0x046d, 0xc52b, "A1"};

std::optional<std::vector<DeviceGrant>> parse(const std::string& text,
                                              std::string* reason = nullptr) {
  return parseDeviceGrants({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                           reason);
}
std::string document(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\">" + content + "</plist>";
}
std::string withGrant(const std::string& entries) {
  return document("<dict><key>Grants</key><array><dict>" + entries + "</dict></array></dict>");
}
std::string integer(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><integer>" + value + "</integer>";
}
std::string grant(const std::string& user = "1000", const std::string& more = "") {
  return integer("User", user) + integer("Bus", "3") + integer("Vendor", "1133") +
         integer("Product", "50475") + more;
}
std::string refusal(const std::string& text) {
  std::string reason;
  return parse(text, &reason) ? "" : reason;
}

TEST(DeviceGrants, AreReadAsWritten) {
  const std::vector<DeviceGrant> grants{{1000, kSwitch, "Foot <switch> & pédale"},
                                        {4294967295U, {0xffff, 0xffffffff, 0, ""}, ""}};
  const auto bytes = encodeDeviceGrants(grants);
  EXPECT_EQ(parseDeviceGrants(bytes, nullptr), grants);
  EXPECT_EQ(parseDeviceGrants(encodeDeviceGrants({}), nullptr), std::vector<DeviceGrant>{});
}

TEST(DeviceGrants, CoverAUserAndAKindOfDevice) {
  const DeviceGrant kind{1000, {3, 0x046d, 0xc52b, ""}, "Foot switch"};
  EXPECT_TRUE(kind.covers(1000, kSwitch));
  EXPECT_TRUE(kind.covers(1000, {3, 0x046d, 0xc52b, ""}));
  EXPECT_FALSE(kind.covers(1001, kSwitch));
  EXPECT_FALSE(kind.covers(0, kSwitch));
  EXPECT_FALSE(kind.covers(1000, {5, 0x046d, 0xc52b, "A1"}));
  EXPECT_FALSE(kind.covers(1000, {3, 0x046e, 0xc52b, "A1"}));
  EXPECT_FALSE(kind.covers(1000, {3, 0x046d, 0xc52c, "A1"}));
}

TEST(DeviceGrants, WithASerialNumberCoverOneDevice) {
  const DeviceGrant one{1000, kSwitch, ""};
  EXPECT_TRUE(one.covers(1000, kSwitch));
  EXPECT_FALSE(one.covers(1000, {3, 0x046d, 0xc52b, "A2"}));
  EXPECT_FALSE(one.covers(1000, {3, 0x046d, 0xc52b, ""}));
}

TEST(DeviceGrants, NothingIsGrantedByWhatIsNotUnderstood) {
  EXPECT_EQ(refusal(withGrant(grant())), "");
  EXPECT_EQ(refusal(""), "it is not a property list with a dictionary");
  EXPECT_EQ(refusal(document("<array/>")), "it is not a property list with a dictionary");
  EXPECT_EQ(refusal(document("<dict/>")), "it has no array \"Grants\"");
  EXPECT_EQ(refusal(document("<dict><key>Grants</key><string/></dict>")),
            "it has no array \"Grants\"");
  EXPECT_EQ(refusal(document("<dict><key>Grants</key><array><string/></array></dict>")),
            "grant 1 cannot be understood");
  const std::string bad = "grant 1 cannot be understood";
  EXPECT_EQ(refusal(withGrant(integer("User", "1000"))), bad);
  EXPECT_EQ(refusal(withGrant(grant("-1"))), bad);
  EXPECT_EQ(refusal(withGrant(grant("4294967296"))), bad);
  EXPECT_EQ(
      refusal(withGrant("<key>User</key><true/>" + grant().substr(integer("User", "1000").size()))),
      bad);
  EXPECT_EQ(refusal(withGrant("<key>User</key><real>1000.5</real>" +
                              grant().substr(integer("User", "1000").size()))),
            bad);
  EXPECT_EQ(refusal(withGrant(grant("1000", integer("Unique", "7")))), bad);
  EXPECT_EQ(refusal(withGrant(grant("1000", integer("Name", "7")))), bad);
}

TEST(DeviceGrants, AnUnknownKeyMayBeAConditionAndGrantsNothing) {
  EXPECT_EQ(refusal(withGrant(grant("1000", integer("Until", "7")))),
            "grant 1 cannot be understood");
}

TEST(DeviceGrants, AreLimited) {
  std::string many = "<dict><key>Grants</key><array>";
  EXPECT_EQ(platform::kMaximumGrants, 1024U);
  EXPECT_EQ(platform::kMaximumGrantFileBytes, 1'048'576U);
  for (std::size_t i = 0; i <= platform::kMaximumGrants; ++i)
    many += "<dict>" + grant() + "</dict>";
  EXPECT_EQ(refusal(document(many + "</array></dict>")), "it has too many grants");
  EXPECT_EQ(refusal(std::string(platform::kMaximumGrantFileBytes + 1, ' ')), "it is too large");
  EXPECT_THROW(
      static_cast<void>(encodeDeviceGrants(std::vector<DeviceGrant>(platform::kMaximumGrants + 1))),
      platform::ServiceError);
}

TEST(DeviceGrants, ASerialNumberThatIsNotTextIsRefused) {
  EXPECT_THROW(static_cast<void>(encodeDeviceGrants({{1000, {3, 1, 2, "\xff"}, ""}})),
               platform::ServiceError);
  EXPECT_THROW(static_cast<void>(encodeDeviceGrants({{1000, {3, 1, 2, "a\x01"}, ""}})),
               platform::ServiceError);
  EXPECT_EQ(parseDeviceGrants(encodeDeviceGrants({{1000, {3, 1, 2, ""}, "\xff"}}), nullptr)->size(),
            1U);
}

}  // namespace
