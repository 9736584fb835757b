// SPDX-License-Identifier: Apache-2.0

// What an authorization covers on the application's side, and which connections it keeps for it.
#include "platform/services/Grant.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "platform/services/ServiceManagement.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/services/FakeDaemon.h"

namespace {

using namespace platform;
using Operation = ControlRequest::Operation;
using servicestest::FakeDaemon;
using testing::ElementsAre;

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

std::string wordsOf(const std::shared_ptr<NSError>& error) {
  return descriptionOf(error->userInfo()->objectForKey(NSLocalizedDescriptionKey));
}

class Grant : public testing::Test {
 protected:
  void SetUp() override { SystemRoot::setCurrent(root_); }
  void TearDown() override { daemon_.reset(); }

  static void remove(AuthorizationRef authorization, const std::string& label = "com.x") {
    const auto reply = askWithAuthorization(authorization, {Operation::Remove, label, true}, -1);
    EXPECT_TRUE(reply.succeeded()) << reply.message;
  }
  /// Whether the bless reaches the daemon.
  static bool blesses(AuthorizationRef authorization) try {
    return askWithAuthorization(authorization, {Operation::Bless, "com.x", true}, -1).succeeded();
  } catch (const ServiceError& error) {
    EXPECT_EQ(error.code(), ServiceErrorCode::NotPermitted);
    EXPECT_STREQ(error.what(), "this authorization has already been used; ask for a new one");
    return false;
  }

  testsupport::TemporaryDirectory temporary_;
  SystemRoot root_{temporary_.path() / "root"};
  std::optional<FakeDaemon> daemon_{std::in_place, root_};
};

TEST_F(Grant, LeaveIsAskedForOnceAndServesARemovalAndABless) {
  const auto authorization = newAuthorization();
  remove(authorization);
  EXPECT_TRUE(blesses(authorization));
  EXPECT_FALSE(blesses(authorization));
  EXPECT_THAT(daemon_->asked(), ElementsAre("authorize com.x", "remove com.x", "bless com.x"));
}

TEST_F(Grant, ABlessUsesItUp) {
  const auto authorization = newAuthorization();
  EXPECT_TRUE(blesses(authorization));
  EXPECT_FALSE(blesses(authorization));
  EXPECT_THAT(daemon_->asked(), ElementsAre("authorize com.x", "bless com.x"));
}

TEST_F(Grant, ADescriptorGoesWithTheBlessOnly) {
  const auto authorization = newAuthorization();
  const FileDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(askWithAuthorization(authorization, {Operation::Bless, "com.x", true}, null.get())
                  .succeeded());
  EXPECT_THAT(daemon_->asked(), ElementsAre("authorize com.x", "bless com.x with a file"));
}

TEST_F(Grant, OnlyFourConnectionsAreKeptTheNewestOnes) {
  std::vector<AuthorizationRef> authorizations;
  for (int i = 0; i < 5; ++i) remove(authorizations.emplace_back(newAuthorization()));
  EXPECT_FALSE(blesses(authorizations[0])) << "the oldest made room";
  for (std::size_t i = 1; i < authorizations.size(); ++i)
    EXPECT_TRUE(blesses(authorizations[i])) << i;
}

TEST_F(Grant, WhatIsUsedUpTakesNobodysPlace) {
  const auto waiting = newAuthorization();
  remove(waiting);
  for (int i = 0; i < 4; ++i) {
    const auto another = newAuthorization();
    remove(another);
    EXPECT_TRUE(blesses(another));
  }
  EXPECT_TRUE(blesses(waiting));
}

TEST_F(Grant, WhatTheDaemonHungUpOnIsClosedByTheNextAuthorization) {
  const auto first = newAuthorization();
  const auto second = newAuthorization();
  remove(first);
  remove(second);
  daemon_.reset();
  const auto held = openDescriptors();
  const auto fresh = newAuthorization();
  EXPECT_EQ(openDescriptors(), held - 2);
  EXPECT_FALSE(blesses(first));
  EXPECT_FALSE(blesses(second));
  daemon_.emplace(root_);
  remove(fresh);
  EXPECT_TRUE(blesses(fresh));
}

TEST_F(Grant, WhatTheDaemonKeepsIsKeptByTheNextAuthorization) {
  const auto first = newAuthorization();
  remove(first);
  static_cast<void>(newAuthorization());
  EXPECT_TRUE(blesses(first));
}

TEST_F(Grant, WhatWasGivenOutStaysKnownHoweverManyCome) {
  std::vector<AuthorizationRef> authorizations;
  for (int i = 0; i < 3; ++i) authorizations.push_back(newAuthorization());
  for (const auto each : authorizations) EXPECT_NO_THROW(checkAuthorization(each));
}

TEST_F(Grant, ARefusedLeaveIsTheDaemonsWord) {
  daemon_.reset();
  daemon_.emplace(root_, [](const ControlRequest&) {
    return FakeDaemon::no(ServiceErrorCode::NotPermitted, "not you");
  });
  const auto authorization = newAuthorization();
  std::shared_ptr<NSError> error;
  EXPECT_FALSE(SMJobRemove(kSMDomainSystemLaunchd, str("com.x"), authorization, true, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::NotPermitted));
  EXPECT_EQ(wordsOf(error), "not you");
  EXPECT_THAT(daemon_->asked(), ElementsAre("authorize com.x"));
}

TEST_F(Grant, ARemovalThatTheDaemonRefusesIsAnErrorWithItsWords) {
  daemon_.reset();
  daemon_.emplace(root_, [](const ControlRequest& request) {
    return request.operation == Operation::Remove
               ? FakeDaemon::no(ServiceErrorCode::NoSuchJob, "there is no job")
               : FakeDaemon::yes(request);
  });
  auto error = NSError::errorWithDomain_code_userInfo(str("from before"), 1, nullptr);
  EXPECT_FALSE(SMJobRemove(kSMDomainSystemLaunchd, str("com.x"), newAuthorization(),
                           /*wait=*/false, &error));
  EXPECT_EQ(error->domain()->UTF8String(), WLServiceManagementErrorDomain);
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::NoSuchJob));
  EXPECT_EQ(wordsOf(error), "there is no job");
  EXPECT_THAT(daemon_->asked(), ElementsAre("authorize com.x", "remove com.x at once"));
}

TEST_F(Grant, ARemovalThatSucceedsHasNoError) {
  auto error = NSError::errorWithDomain_code_userInfo(str("from before"), 1, nullptr);
  EXPECT_TRUE(SMJobRemove(kSMDomainSystemLaunchd, str("com.x"), newAuthorization(), true, &error));
  EXPECT_EQ(error, nullptr);
  EXPECT_TRUE(SMJobRemove(kSMDomainSystemLaunchd, str("com.x"), newAuthorization(), true, nullptr));
}

TEST_F(Grant, ADaemonThatHangsUpBeforeItAnswersTheChangeIsNamed) {
  daemon_.reset();
  daemon_.emplace(root_, [](const ControlRequest& request) {
    return request.operation == Operation::Authorize ? FakeDaemon::yes(request)
                                                     : std::vector<std::uint8_t>();
  });
  std::shared_ptr<NSError> error;
  EXPECT_FALSE(SMJobRemove(kSMDomainSystemLaunchd, str("com.x"), newAuthorization(), true, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::DaemonUnavailable));
  EXPECT_EQ(wordsOf(error), "the job daemon closed the connection before it answered; try again");
}

}  // namespace
