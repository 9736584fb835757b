// SPDX-License-Identifier: Apache-2.0

#include "platform/system/SessionLookup.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>

namespace {

using platform::system::SessionLookup;

constexpr pid_t kTerminal = 100;   // in session 3 of user 1000
constexpr pid_t kUserUnit = 200;   // started by the user manager of user 1000
constexpr pid_t kLingering = 300;  // by that of user 1001, who has no session
constexpr pid_t kService = 400;    // by the system

template <class Key, class Value>
auto lookUpIn(std::map<Key, Value> map) {
  return [map](Key key) -> std::optional<Value> {
    const auto found = map.find(key);
    return found == map.end() ? std::nullopt : std::optional(found->second);
  };
}

SessionLookup twoUsers() {
  return {.sessionOfProcess = lookUpIn<pid_t, std::string>({{kTerminal, "3"}}),
          .ownerOfProcess =
              lookUpIn<pid_t, uid_t>({{kTerminal, 1000}, {kUserUnit, 1000}, {kLingering, 1001}}),
          .displayOfUser = lookUpIn<uid_t, std::string>({{1000, "2"}})};
}

TEST(SessionLookup, AProcessBelongsToTheSessionItIsIn) {
  EXPECT_EQ(twoUsers().find(kTerminal), "3");
}

TEST(SessionLookup, AProcessOfAUserManagerBelongsToTheUsersDisplaySession) {
  EXPECT_EQ(twoUsers().find(kUserUnit), "2");
}

TEST(SessionLookup, ALingeringUserHasNoSession) {
  EXPECT_EQ(twoUsers().find(kLingering), std::nullopt);
}

TEST(SessionLookup, AServiceHasNoSession) {
  EXPECT_EQ(twoUsers().find(kService), std::nullopt);
}

TEST(SessionLookup, TheSystemKnowsNoSessionOfAProcessThatIsNone) {
  EXPECT_EQ(SessionLookup::ofSystem().find(1 << 30), std::nullopt);
}

}  // namespace
