// SPDX-License-Identifier: Apache-2.0

#include "input/Presence.h"

#include <gtest/gtest.h>

#include "platform/foundation/NSString.h"

namespace {

using wlhid::CopyState;
using wlhid::Presence;
using wlhid::presenceOf;
using wlhid::PresenceState;
using wlhid::RouterCopy;
using wlhid::RouterVersions;

RouterCopy copy(const std::string& version) {
  return {"/router", version, CopyState::Complete, {}, platform::str(version)};
}
RouterCopy unreadable() {
  return {"/router", {}, CopyState::Unreadable, "/router: Permission denied", nullptr};
}

TEST(Presence, OfTheSameVersionIsAYes) {
  const Presence presence = presenceOf({copy("1.0"), copy("1.0"), {}, {}});
  EXPECT_TRUE(presence);
  EXPECT_EQ(presence.state, PresenceState::Present);
  EXPECT_EQ(presence.text, "Version 1.0 of the router is installed.");
}

TEST(Presence, OfAnotherVersionNamesBoth) {
  const Presence presence = presenceOf({copy("1.0"), copy("2.0"), {}, {}});
  EXPECT_FALSE(presence);
  EXPECT_EQ(presence.state, PresenceState::OtherVersion);
  EXPECT_EQ(presence.installedVersion, "2.0");
  EXPECT_EQ(presence.ownVersion, "1.0");
  EXPECT_EQ(presence.text,
            "Version 2.0 of the router is installed, and this application brings 1.0. Install the "
            "router from this application.");
}

TEST(Presence, OfNoneSaysWhatIsMissing) {
  const Presence presence = presenceOf({copy("1.0"), std::nullopt, "no job file", {}});
  EXPECT_EQ(presence.state, PresenceState::NotInstalled);
  EXPECT_EQ(presence.ownVersion, "1.0");
  EXPECT_EQ(presence.text,
            "The router is not installed (no job file). Install the router from this "
            "application.");
}

TEST(Presence, OfWhatCannotBeReadSaysWhy) {
  const Presence installed = presenceOf({copy("1.0"), unreadable(), {}, {}});
  EXPECT_EQ(installed.state, PresenceState::InstalledUnknown);
  EXPECT_EQ(installed.text,
            "The installed router cannot be examined: /router: Permission denied. Install the "
            "router from this application.");
  const Presence own = presenceOf({unreadable(), copy("1.0"), {}, {}});
  EXPECT_EQ(own.state, PresenceState::OwnCopyUnknown);
  EXPECT_EQ(own.text,
            "This application's own copy of the router cannot be used: /router: Permission "
            "denied. Install the application again.");
}

}  // namespace
