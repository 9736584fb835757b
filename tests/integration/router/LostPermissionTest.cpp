// SPDX-License-Identifier: Apache-2.0

// What a client still receives after the authority has taken its permission back:
//
//   while the device is opened      started; nothing else; invalidated.
#include "LostPermissionFixture.h"

namespace {

using lostpermission::kDevice;
using lostpermission::YesUntilRevoked;
using routertest::Client;
using testing::ElementsAre;

using LostPermission = lostpermission::LostPermissionFixture;

TEST_F(LostPermission, WhileTheDeviceIsOpenedNothingIsDeliveredAtAll) {
  const auto authority = std::make_shared<YesUntilRevoked>();
  authority_ = authority;
  device_.feed.report("01");
  device_.onOpen = [&] { authority->revoke(); };
  startRouterThatStopsAt("no longer routes");
  Client client;
  client.start(kDevice);
  session_.awaitArrivals(1);
  device_.reads.awaitArrivals(2);
  session_.open();
  client.log->awaitLast("invalidated");
  EXPECT_THAT(client.log->lines(), ElementsAre("started", "invalidated"));
}

TEST_F(LostPermission, IsLookedForAgainAndAgain) {
  const auto authority = std::make_shared<YesUntilRevoked>();
  authority_ = authority;
  startRouterThatStopsAt("nothing");
  Client client;
  client.start(kDevice);
  client.log->await(1);
  authority->reviews.awaitArrivals(5);  // more than there are changes
}

}  // namespace
