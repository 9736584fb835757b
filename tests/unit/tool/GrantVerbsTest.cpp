// SPDX-License-Identifier: Apache-2.0

// wlhid grant, grants and revoke.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "platform/services/DeviceGrants.h"
#include "tests/unit/services/FakeDaemon.h"
#include "tests/unit/tool/SystemVerbTest.h"

namespace tool {
namespace {

using platform::ControlRequest;
using platform::DeviceGrant;
using testing::HasSubstr;

constexpr const char* kNothing =
    "Nothing has to be granted here: every device of your own system root may be routed by you "
    "anyway.\n";
const DeviceGrant kPedal{4000000, {3, 0x5f3, 0xff, ""}, "Pedal"};
const DeviceGrant kDial{4000001, {5, 0x46d, 0xc52b, "A1"}, "Dial"};

class OwnGrantsTest : public VerbTest {};

TEST_F(OwnGrantsTest, OnAUsersRootNothingHasToBeGranted) {
  for (const std::vector<std::string>& verb :
       {std::vector<std::string>{"grant", "Pedal"}, {"grants"}, {"revoke", "1"}}) {
    const Outcome outcome = run(addGrantVerbs, verb);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, kNothing);
    EXPECT_EQ(outcome.err, "");
  }
  EXPECT_EQ(run(addGrantVerbs, {"grants", "--json"}).out, "[]\n");
}

class GrantVerbsTest : public SystemVerbTest {
 protected:
  void put(const std::string& text) const {
    testsupport::writeFile(root_.path() / "var/lib/wlhid/grants.plist", text);
  }
  void grant(const std::vector<DeviceGrant>& grants) const {
    const auto bytes = platform::encodeDeviceGrants(grants);
    put(std::string(bytes.begin(), bytes.end()));
  }
  /// A daemon that keeps the last request and answers with success, or with a refusal.
  [[nodiscard]] std::unique_ptr<servicestest::FakeDaemon> daemon(const std::string& refusal = "") {
    return std::make_unique<servicestest::FakeDaemon>(
        root_, [this, refusal](const ControlRequest& request) {
          asked_ = request;
          return refusal.empty() ? servicestest::FakeDaemon::yes(request)
                                 : servicestest::FakeDaemon::no(
                                       platform::ServiceErrorCode::NotPermitted, refusal);
        });
  }
  std::optional<ControlRequest> asked_;
};

TEST_F(GrantVerbsTest, TheListIsThatOfTheFile) {
  EXPECT_EQ(run(addGrantVerbs, {"grants"}).out, "No grants.\n");
  grant({kPedal, kDial});
  EXPECT_EQ(run(addGrantVerbs, {"grants"}).out,
            "GRANT  USER     BUS:VENDOR:PRODUCT  SERIAL NUMBER  NAME\n"
            "1      4000000  0003:05f3:00ff      any            Pedal\n"
            "2      4000001  0005:046d:c52b      A1             Dial\n");
  const auto json = nlohmann::json::parse(run(addGrantVerbs, {"grants", "--json"}).out);
  EXPECT_EQ(json[0]["unique"], nullptr);
  EXPECT_EQ(json[1], (nlohmann::json{{"user", 4000001},
                                     {"bus", 5},
                                     {"vendor", 0x46d},
                                     {"product", 0xc52b},
                                     {"unique", "A1"},
                                     {"name", "Dial"}}));
}

TEST_F(GrantVerbsTest, AFileThatCannotBeUnderstoodIsAComplaint) {
  put("nonsense");
  const Outcome outcome = run(addGrantVerbs, {"grants"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("grants.plist: "));
}

TEST_F(GrantVerbsTest, AGrantIsTheDaemonsToKeep) {
  const auto router = routerWith({pedal()});
  const auto jobd = daemon();
  const Outcome outcome = run(addGrantVerbs, {"grant", "Pedal", "--user", "4000000"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "From now on, 4000000 may have \"Pedal\" and every other device 0003:05f3:00ff routed "
            "without a question.\n");
  ASSERT_TRUE(asked_.has_value());
  EXPECT_EQ(asked_->operation, ControlRequest::Operation::Grant);
  EXPECT_EQ(asked_->grant, kPedal);
}

TEST_F(GrantVerbsTest, ASerialNumberLimitsTheGrantToTheOneDevice) {
  auto one = pedal();
  one.device.unique = "A1";
  const auto router = routerWith({one});
  const auto jobd = daemon();
  EXPECT_EQ(run(addGrantVerbs, {"grant", "Pedal", "--user", "4000000"}).out,
            "From now on, 4000000 may have \"Pedal\" with the serial number A1 routed without a "
            "question.\n");
  EXPECT_EQ(asked_->grant->device.unique, "A1");
}

TEST_F(GrantVerbsTest, ADeviceMayBeNamedByItsID) {
  const auto router = routerWith({pedal()});
  const auto jobd = daemon();
  EXPECT_EQ(run(addGrantVerbs, {"grant", "0x10007"}).status, 0);
  EXPECT_EQ(asked_->grant->user, ::getuid());
  EXPECT_EQ(asked_->grant->name, "Pedal");
}

TEST_F(GrantVerbsTest, ADeviceThatIsNotThereIsNotGranted) {
  const auto router = routerWith({pedal()});
  EXPECT_TRUE(isRefusal(run(addGrantVerbs, {"grant", "Dial"}), 1,
                        "there is no device \"Dial\" (wlhid devices lists them)"));
}

TEST_F(GrantVerbsTest, ANameOfSeveralDevicesIsNotEnough) {
  const auto router = routerWith({pedal(), pedal()});
  EXPECT_TRUE(isRefusal(run(addGrantVerbs, {"grant", "Pedal"}), 1,
                        "2 devices are called \"Pedal\"; use the registry entry ID (wlhid devices "
                        "lists them)"));
}

TEST_F(GrantVerbsTest, AUserWhoIsNotThereGetsNothing) {
  EXPECT_TRUE(isRefusal(run(addGrantVerbs, {"grant", "Pedal", "--user", "no such user"}), 1,
                        "there is no user \"no such user\""));
  EXPECT_TRUE(isRefusal(run(addGrantVerbs, {"grant", "Pedal", "--user", "4294967295"}), 1,
                        "there is no user \"4294967295\""));
}

TEST_F(GrantVerbsTest, ARefusalIsShown) {
  const auto router = routerWith({pedal()});
  const auto jobd = daemon("the caller may not change what is granted");
  EXPECT_TRUE(isRefusal(run(addGrantVerbs, {"grant", "Pedal"}), 1,
                        "nothing was granted: the caller may not change what is granted"));
}

TEST_F(GrantVerbsTest, AGrantIsTakenBackByItsNumber) {
  grant({kPedal, kDial});
  const auto jobd = daemon();
  const Outcome outcome = run(addGrantVerbs, {"revoke", "2"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, testing::StartsWith("For 4000001, \"Dial\" is a device like any other"));
  EXPECT_EQ(asked_->operation, ControlRequest::Operation::Revoke);
  EXPECT_EQ(asked_->grant, kDial);
}

TEST_F(GrantVerbsTest, OnlyWhatIsListedCanBeTakenBack) {
  grant({kPedal});
  EXPECT_TRUE(isRefusal(run(addGrantVerbs, {"revoke", "2"}), 1,
                        "there is no grant 2 (wlhid grants lists them)"));
  for (const char* text : {"0", "x"}) {
    EXPECT_TRUE(isRefusal(
        run(addGrantVerbs, {"revoke", text}), 2,
        "\"" + std::string(text) + "\" is not the number of a grant (wlhid grants lists them)"));
  }
}

}  // namespace
}  // namespace tool
