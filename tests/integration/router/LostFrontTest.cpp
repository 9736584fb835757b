// SPDX-License-Identifier: Apache-2.0

// What a client still receives after logind has said that its login session is locked, inactive or
// has ended: the reports before and nothing after, whatever its session in the router is doing.
#include <sys/eventfd.h>

#include "LostPermissionFixture.h"
#include "router/policy/SystemServices.h"
#include "tests/support/Inbox.h"
#include "tests/support/MockLogind.h"
#include "tests/support/PrivateBus.h"

namespace {

using lostpermission::kDevice;
using routertest::Client;
using testing::ElementsAre;
using testsupport::MockLogind;

struct Loss {
  const char* name;
  void (*cause)(MockLogind& logind);
};

class LostFront : public lostpermission::LostPermissionFixture,
                  public testing::WithParamInterface<Loss> {
 protected:
  LostFront() {
    logind_.set("3", {});
    services_.addTo(&sources_);
    sources_.device = [](const router::DeviceDescription&) {
      return router::RoutableDevice{
          {3, 1, 2, ""},
          {router::DeviceClass::Ordinary, "", {}},
          std::make_shared<const router::ReportDescriptor>(
              router::ReportDescriptor::parse(lostpermission::kDescriptor))};
    };
    sources_.isGranted = [](uid_t, const platform::DeviceIdentity&) { return false; };
    sources_.askPolkit = [](const platform::system::PolkitQuestion&, const auto& answered) {
      answered({platform::system::PolkitAnswer::Kind::Yes, false, ""});
      return std::unique_ptr<router::Pending>();
    };
    sources_.record = [](const router::RoutingRecord&) {};
    authority_ = std::make_shared<router::SystemAuthority>(sources_);
  }
  /// When this returns, every watch of the session that began earlier has been told.
  void awaitLoss(const std::function<void()>& cause) {
    const auto isInFront = std::make_shared<testsupport::Inbox<bool>>();
    const auto watch =
        sources_.watchSession("3", [isInFront](const platform::system::SessionState& state) {
          isInFront->put(state.isInFront());
        });
    EXPECT_TRUE(isInFront->next());
    cause();
    EXPECT_FALSE(isInFront->next());
  }

  testsupport::PrivateBus daemon_;
  platform::FileDescriptor changes_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  MockLogind logind_{daemon_.address()};
  router::SystemServices services_{
      {.address = daemon_.address()},
      {.lookup = {.sessionOfProcess = [](pid_t) { return std::optional<std::string>("3"); },
                  .ownerOfProcess = [](pid_t) { return std::nullopt; },
                  .displayOfUser = [](uid_t) { return std::nullopt; }},
       .changes = changes_.get()}};
  router::AuthoritySources sources_;
};

/// Neither waits the end of the delivery for the session's queue, on which a stop request is being
/// served all the while.
TEST_P(LostFront, EndsTheDeliveryThoughTheSessionIsBusy) {
  startRouterThatStopsAt("stops");
  Client client;
  client.start(kDevice);
  device_.feed.report("01");
  client.log->await(3);
  client.stop();
  session_.awaitArrivals(1);
  awaitLoss([&] { GetParam().cause(logind_); });
  device_.feed.report("02");
  device_.reads.awaitArrivals(3);
  session_.open();
  client.start(0x42);  // answered after everything that was sent
  EXPECT_THAT(client.log->await(4),
              ElementsAre("started", "data 0 01", "values 1/48=1", testing::HasSubstr("0x42")));
}

INSTANTIATE_TEST_SUITE_P(
    Sessions, LostFront,
    testing::Values(Loss{"locked", [](MockLogind& logind) { logind.setLocked("3", true); }},
                    Loss{"inactive", [](MockLogind& logind) { logind.setActive("3", false); }},
                    Loss{"ended", [](MockLogind& logind) { logind.remove("3"); }}),
    [](const auto& each) { return each.param.name; });

}  // namespace
