// SPDX-License-Identifier: Apache-2.0

// The object itself: creation, properties, tags, the weak delegate, release.
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

class ClientObject : public ClientTest {};

TEST_F(ClientObject, CreatedWhileInstalledHasStatusesOneAndZero) {
  client_ = newClient();
  EXPECT_EQ(client_->eventRouterStatus(), WLHIDEventRouterStatusInstalled);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusIdle);
  EXPECT_FALSE(client_->started());
  EXPECT_EQ(client_->delegate(), nullptr);
  EXPECT_EQ(platform_.connectionCount(), 0U);
}

TEST_F(ClientObject, CreatedWhileNotInstalledHasStatusesZeroAndZero) {
  platform_.uninstallHelper(kLabel);
  client_ = newClient();
  EXPECT_EQ(client_->eventRouterStatus(), WLHIDEventRouterStatusNotInstalled);
  EXPECT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusIdle);
}

TEST_F(ClientObject, KeepsItsArgumentsAndSharesTheDictionaries) {
  const long before = tags_.use_count();
  client_ = newClient();
  EXPECT_EQ(client_->registryEntryID(), kEntryID);
  EXPECT_EQ(client_->hidDeviceMode(), kDeviceMode);
  EXPECT_EQ(tags_.use_count(), before + 1);
  client_.reset();
  EXPECT_EQ(tags_.use_count(), before);
}

TEST_F(ClientObject, AcceptsAnyIDAndModeAndNullDictionaries) {
  const auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          ~std::uint64_t{0}, ~std::uint64_t{0}, nullptr, nullptr);
  ASSERT_NE(client, nullptr);
  client->setStarted(true);
  EXPECT_EQ(
      taken().at(sequence({creation(true), setStarted(true), update(true), opening(1),
                           setClientStatus(2), called("startListeningToService", 269), "proxy"})
                     .size()),
      connection(
          1,
          "send startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply: "
          "18446744073709551615 18446744073709551615 nil nil"));
}

TEST_F(ClientObject, ClassAndInstanceHaveEqualTags) {
  client_ = newClient();
  const auto ofInstance = client_->logTags();
  const auto ofClass = WLHIDEventRouterClient::Class::logTags();
  EXPECT_TRUE(ofInstance->isEqual(ofClass));
  EXPECT_NE(ofInstance, ofClass);
  ASSERT_EQ(ofInstance->count(), 1U);
  EXPECT_EQ(ofInstance->objectAtIndex(0)->description(), "WLHIDEventRouterClient");
}

TEST_F(ClientObject, AskingForTagsLogsNothing) {
  client_ = newClient();
  taken();
  (void)client_->logTags();
  (void)WLHIDEventRouterClient::Class::logTags();
  EXPECT_TRUE(sameTrace({}, taken()));
}

TEST_F(ClientObject, ReleaseWithTheConnectionAlreadyGoneDoesNoHarm) {
  makeRoutingClient();
  client_->setStarted(false);
  taken();
  releaseClient();
  EXPECT_TRUE(
      sameTrace(sequence({dealloc(), closeWithoutConnection(), removeObserver()}), taken()));
}

TEST_F(ClientObject, ReleaseWhileRoutingSendsNothingAndCallsNoDelegate) {
  makeRoutingClient();
  releaseClient();
  for (const std::string& line : taken()) {
    EXPECT_EQ(line.find(" send "), std::string::npos) << line;
    EXPECT_EQ(line.find("delegate"), std::string::npos) << line;
  }
}

TEST_F(ClientObject, TheDelegateIsHeldWeakly) {
  makeRoutingClient();
  EXPECT_EQ(client_->delegate(), delegate_);
  delegate_.reset();
  EXPECT_EQ(client_->delegate(), nullptr);
  client_->setClientStatus(WLHIDEventRouterClientStatusFailed);
  EXPECT_TRUE(sameTrace(staysAt(3), taken()));
}

TEST_F(ClientObject, SettingTheDelegateDoesNothingElse) {
  makeRoutingClient();
  client_->setDelegate(nullptr);
  EXPECT_EQ(client_->delegate(), nullptr);
  client_->setDelegate(delegate_);
  EXPECT_EQ(client_->delegate(), delegate_);
  client_->setDelegate(std::shared_ptr<RecordingDelegate>());
  EXPECT_EQ(client_->delegate(), nullptr);
  EXPECT_TRUE(sameTrace({}, taken()));
}

TEST_F(ClientObject, AReleasedClientHearsNoNotification) {
  makeClient();
  releaseClient();
  taken();
  postStatusChange();
  EXPECT_TRUE(sameTrace({posted()}, taken()));
}

TEST_F(ClientObject, TheMethodThatCallsOutKeepsTheClientAlive) {
  makeClient();
  observations_.clear();
  delegate_->onStatus = [this](const auto&, WLHIDEventRouterClientStatus) { client_.reset(); };
  client_->setStarted(true);
  EXPECT_EQ(client_, nullptr);
  // Now only the pending start request keeps it alive.
  connection1().deliverReply(nullptr);
  EXPECT_EQ(taken().back(), removeObserver().back());
}

TEST_F(ClientObject, AStatusIsAnnouncedToItsEndWhoeverReleasesTheClientMeanwhile) {
  makeClient();
  delegate_->onStatus = [this](const auto&, WLHIDEventRouterClientStatus) { client_.reset(); };
  WLHIDEventRouterClient& client = *client_;
  client.setClientStatus(WLHIDEventRouterClientStatusFailed);
  EXPECT_EQ(client_, nullptr);
  const Lines lines = taken();
  const auto at = [&lines](const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) - lines.begin();
  };
  ASSERT_LT(at(dealloc()), std::ssize(lines));
  EXPECT_LT(at("did change clientStatus"), at(dealloc()));
}

TEST_F(ClientObject, ARouterStatusIsAnnouncedToItsEndWhoeverReleasesTheClientMeanwhile) {
  makeClient();
  client_->setStarted(true);
  connection1().deliverReply(nullptr);  // no request keeps it alive any more
  taken();
  delegate_->onStatus = [this](const auto&, WLHIDEventRouterClientStatus) { client_.reset(); };
  platform_.uninstallHelper(kLabel);
  WLHIDEventRouterClient& client = *client_;
  inside(client)._installationStatusChanged(nullptr);
  EXPECT_EQ(client_, nullptr);
  const Lines lines = taken();
  const auto at = [&lines](const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) - lines.begin();
  };
  ASSERT_LT(at(dealloc()), std::ssize(lines));
  EXPECT_LT(at("did change eventRouterStatus"), at(dealloc()));
}

TEST_F(ClientObject, VersionConstants) {
  EXPECT_EQ(WLHIDAccessVersionNumber, 1.0);
  EXPECT_STREQ(WLHIDAccessVersionString, "@(#)PROGRAM:WLHIDAccess  PROJECT:WLHIDAccess-1\n");
}

}  // namespace
}  // namespace test
