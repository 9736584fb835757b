// SPDX-License-Identifier: Apache-2.0

#include <thread>

#include "InputFixture.h"
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/services/Authorization.h"

namespace {

using inputtest::InputFixture;
using inputtest::Lines;
using wlhid::Input;
using wlhid::InputState;

/// What an application notes: "report 01", "values X=1", and the words of each status.
wlhid::InputHandlers noting(Lines& lines) {
  return {.report =
              [&lines](const wlhid::Report& report) {
                std::string line = "report";
                for (const std::byte byte : report.bytes)
                  line += " " + std::to_string(std::to_integer<int>(byte));
                lines.add(line);
              },
          .values =
              [&lines](std::span<const wlhid::Value> values) {
                std::string line = "values";
                for (const wlhid::Value& each : values)
                  line += " " + each.usage.name() + "=" + std::to_string(each.value);
                lines.add(line);
              },
          .status = [&lines](const wlhid::Status& status) { lines.add(status.text); }};
}

class InputTest : public InputFixture {
 protected:
  Lines lines_;
};

TEST_F(InputTest, BringsReportsAndValuesWithTheNamesOfTheirUsages) {
  wlhid::Router::install("to test");
  const std::uint64_t id = addDevice("Mouse");
  const Input input({.device = id}, noting(lines_));
  lines_.await("connecting: the router has been asked for Mouse");
  lines_.await("routing Mouse");
  lines_.await("report 1");
  lines_.await("values X=2");
  const wlhid::Status status = input.status();
  EXPECT_EQ(status.state, InputState::Routing);
  EXPECT_EQ(status.device->id, id);
  EXPECT_EQ(input.client()->registryEntryID(), id);
}

TEST_F(InputTest, FindsADeviceByWhatItIs) {
  wlhid::Router::install();
  addDevice("Mouse");
  const Input input({.which = {.matching = {{.vendor = 0x627}}}}, noting(lines_));
  lines_.await("routing Mouse");
  lines_.await("report 2");
}

TEST_F(InputTest, ADelegateReceivesTheSame) {
  class Delegate final : public wlhid::InputDelegate {
   public:
    explicit Delegate(Lines& lines) : lines_(lines) {}
    void received(const wlhid::Report& report) override {
      lines_.add("report of " + std::to_string(report.bytes.size()));
    }
    void received(std::span<const wlhid::Value> values) override {
      lines_.add("values of " + values.front().usage.name());
    }
    void changed(const wlhid::Status& status) override { lines_.add(status.text); }

   private:
    Lines& lines_;
  };
  wlhid::Router::install();
  const auto delegate = std::make_shared<Delegate>(lines_);
  const Input input({.device = addDevice("Mouse")}, delegate);
  lines_.await("routing Mouse");
  lines_.await("report of 1");
  lines_.await("values of X");
}

TEST_F(InputTest, BringsOnlyTheValuesOfTheUsagesThatAreWanted) {
  wlhid::Router::install();
  const std::uint64_t id = addTwoReports("Mouse");
  const Input input({.device = id, .usages = {{1, 0x31}}}, noting(lines_));
  lines_.await("values Y=6");
  lines_.await("report 1 5");
  lines_.await("values Y=6");
  EXPECT_THAT(lines_.all(), testing::Not(testing::Contains(testing::HasSubstr("X="))));
  Lines all;
  const Input other({.device = id}, noting(all));
  all.await("values X=5");
  all.await("values Y=6");
}

TEST_F(InputTest, AReportsTimeIsThatOfItsArrivalOnTheSteadyClock) {
  wlhid::Router::install();
  const auto begun = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point latest = begun;  // of the callbacks', one at a time
  const Input input({.device = addDevice("Mouse")}, {.report = [&](const wlhid::Report& report) {
                      const bool isInOrder = latest <= report.time;
                      latest = report.time;
                      const bool hasPassed = latest <= std::chrono::steady_clock::now();
                      lines_.add(isInOrder && hasPassed ? "good" : "bad");
                    }});
  for (int i = 0; i < 5; ++i) lines_.await("good");
  EXPECT_THAT(lines_.all(), testing::Not(testing::Contains("bad")));
}

TEST_F(InputTest, NumbersTheReportsAnewEachTimeItGoesOn) {
  wlhid::Router::install();
  wlhid::InputHandlers handlers = noting(lines_);
  handlers.report = [this](const wlhid::Report& report) {
    lines_.add("report " + std::to_string(report.number) + ".");
  };
  const Input input({.device = addDevice("Mouse")}, std::move(handlers));
  lines_.await("routing Mouse");
  lines_.await("report 2.");
  killRouter();
  lines_.await("reconnecting");
  lines_.await("routing Mouse");
  lines_.await("report 1.");
  lines_.await("report 2.");
}

TEST_F(InputTest, GoesOnAfterTheRoutersDeath) {
  wlhid::Router::install();
  const Input input({.device = addDevice("Mouse")}, noting(lines_));
  lines_.await("report");
  killRouter();
  lines_.await("reconnecting: the router has ended unexpectedly");
  lines_.await("routing Mouse");
  lines_.await("report");
}

TEST_F(InputTest, WaitsForARouterThatAnotherProgramInstalls) {
  const std::uint64_t id = addDevice("Mouse");
  const Input input({.device = id}, noting(lines_));
  lines_.await("waiting for the router: The router is not installed");
  installElsewhere(ownRouter());
  lines_.await("routing Mouse");
  lines_.await("report");
}

/// The Input has no part in it: it waits for another device.
TEST_F(InputTest, AClientBesideItLearnsThatAnotherProgramHasInstalledTheRouter) {
  class Delegate final : public WLHIDEventRouterClientDelegate {
   public:
    explicit Delegate(Lines& lines) : lines_(lines) {}
    void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                    WLHIDEventRouterClientStatus status) override {
      lines_.add("status " + std::to_string(static_cast<int>(status)));
    }
    void hidEventRouterClient_receivedReportData_reportID(
        const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>&,
        std::uint32_t) override {
      lines_.add("report");
    }

   private:
    Lines& lines_;
  };
  const auto delegate = std::make_shared<Delegate>(lines_);
  const auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          addDevice("Mouse"), 0, nullptr, nullptr);
  client->setDelegate(delegate);
  client->setStarted(true);
  lines_.await("status 1");
  Lines others;
  const Input input({.device = 0x123456789}, noting(others));
  others.await("waiting for the router");
  installElsewhere(ownRouter());
  lines_.await("status 2");
  lines_.await("status 4");
  lines_.await("report");
  client->setStarted(false);
}

TEST_F(InputTest, GoesOnAfterARemovalAndReinstallationByAnotherProgram) {
  wlhid::Router::install();
  const Input input({.device = addDevice("Mouse")}, noting(lines_));
  lines_.await("report");
  removeElsewhere();
  lines_.await("waiting for the router: The router is not installed");
  installElsewhere(ownRouter());
  lines_.await("routing Mouse");
  lines_.await("report");
}

TEST_F(InputTest, SaysThatAnotherVersionIsInstalledAndGoesOnWithItsOwn) {
  wlhid::Router::install();
  const Input input({.device = addDevice("Mouse")}, noting(lines_));
  lines_.await("report");
  installElsewhere(OTHER_ROUTER);
  lines_.await("Version 2.0 of the router is installed, and this application brings 1.0.");
  EXPECT_EQ(wlhid::Router::presence().state, wlhid::PresenceState::OtherVersion);
  wlhid::Router::install();
  lines_.await("routing Mouse");
  lines_.await("report");
}

TEST_F(InputTest, WaitsForTheDeviceAndTakesItWhenItIsThereAgain) {
  wlhid::Router::install();
  const std::uint64_t id = addDevice("Mouse");
  const Input input({.device = id}, noting(lines_));
  lines_.await("report");
  removeDevice("Mouse");
  lines_.await("waiting for the device: Mouse is not connected");
  EXPECT_EQ(addDevice("Mouse"), id);
  lines_.await("routing Mouse");
  lines_.await("report");
}

TEST_F(InputTest, TheSameDeviceWithAnotherIDIsTheSameDevice) {
  wlhid::Router::install();
  const std::uint64_t id = addDevice("Mouse");
  const Input input({.device = id}, noting(lines_));
  lines_.await("report");
  removeDevice("Mouse");
  lines_.await("waiting for the device");
  const auto copy = temporary_.path() / "Mouse.hid";
  router::ReplayDevice device;
  device.configuration = "plugged-in-elsewhere";
  device.recording = copy;
  device.repeat = true;
  const std::uint64_t other = router::addReplayDevice(root_, device);
  EXPECT_NE(other, id);
  lines_.await("routing Mouse");
  lines_.await("report");
  EXPECT_EQ(input.status().device->id, other);
}

TEST_F(InputTest, ARecordingEnds) {
  wlhid::Router::install();
  const Input input({.device = addDevice("Mouse", /*repeat=*/false)}, noting(lines_));
  lines_.await("report 2");
  lines_.await("ended: the recording \"Mouse\" has been played to its end");
  EXPECT_EQ(input.status().state, InputState::Ended);
  EXPECT_EQ(input.client(), nullptr);
}

TEST_F(InputTest, ADeviceThatIsNotThereIsWaitedFor) {
  wlhid::Router::install();
  const Input input({.device = 0x123456789}, noting(lines_));
  lines_.await("waiting for the device: it is not connected");
}

TEST_F(InputTest, MayBeDestroyedInItsOwnCallback) {
  wlhid::Router::install();
  std::unique_ptr<Input> input;
  std::mutex mutex;
  wlhid::InputHandlers handlers;
  handlers.report = [&](const wlhid::Report&) {
    std::unique_ptr<Input> ending;
    {
      const std::lock_guard lock(mutex);
      ending.swap(input);
    }
    if (ending == nullptr) return lines_.add("late");
    ending = nullptr;
    lines_.add("destroyed");
  };
  {
    const std::lock_guard lock(mutex);
    input = std::make_unique<Input>(wlhid::InputOptions{.device = addDevice("Mouse")}, handlers);
  }
  lines_.await("destroyed");
  const Input other({.device = addDevice("Other")}, noting(lines_));
  lines_.await("routing Other");
  EXPECT_THAT(lines_.all(), testing::Not(testing::Contains("late")));
}

TEST_F(InputTest, AnExclusiveOneLeavesNothingToOthersUntilItEnds) {
  wlhid::Router::install();
  const std::uint64_t id = addDevice("Mouse");
  Lines first;
  auto exclusive = std::make_unique<Input>(wlhid::InputOptions{.device = id, .isExclusive = true},
                                           noting(first));
  first.await("routing Mouse");
  const Input input({.device = id}, noting(lines_));
  lines_.await("reconnecting: ");
  EXPECT_EQ(input.status().error->code(), -536870203);
  exclusive = nullptr;
  lines_.await("routing Mouse");
}

TEST_F(InputTest, ARefusedConsentInstallsNothing) {
  wlhid::Router::setConsentAgent([&](const std::string& prompt) {
    lines_.add("asked: " + prompt);
    return wlhid::Consent::Denied;
  });
  try {
    wlhid::Router::install("Pen Studio needs it.");
    FAIL() << "it was installed";
  } catch (const wlhid::Error& error) {
    EXPECT_EQ(error.code(), -60005);
    EXPECT_STREQ(error.what(),
                 "The authorization was denied, so nothing was changed. Ask again, and answer "
                 "yes.");
  }
  lines_.await("asked: Pen Studio needs it.");
  EXPECT_EQ(wlhid::Router::presence().state, wlhid::PresenceState::NotInstalled);
}

TEST_F(InputTest, ARemovalAsksForNoMoreThanARemoval) {
  std::vector<platform::ChangePurpose> purposes;
  wlhid::Router::setConsentAgent([&](const std::string&) {
    purposes.push_back(platform::authorizationPurpose());
    return wlhid::Consent::Given;
  });
  wlhid::Router::install("to test");
  wlhid::Router::remove("to test");
  EXPECT_THAT(purposes, testing::ElementsAre(platform::ChangePurpose::Install,
                                             platform::ChangePurpose::Remove));
  EXPECT_EQ(platform::authorizationPurpose(), platform::ChangePurpose::Install) << "as before";
}

TEST_F(InputTest, InstallsAndRemovesOnAThreadOfTheCallersChoice) {
  const wlhid::Executor executor = [](const std::function<void()>& work) {
    std::thread(work).join();
  };
  std::thread::id where;
  const auto done = [&](const wlhid::Error* error) {
    where = std::this_thread::get_id();
    lines_.add(error == nullptr ? "done" : error->what());
  };
  wlhid::Router::install("to test", executor, done);
  EXPECT_NE(where, std::this_thread::get_id());
  EXPECT_TRUE(wlhid::Router::presence());
  wlhid::Router::remove("to test", executor, done);
  EXPECT_FALSE(wlhid::Router::presence());
  wlhid::Router::remove("to test", executor, done);
  EXPECT_THAT(lines_.all(),
              testing::ElementsAre("done", "done", testing::StartsWith("Nothing was")));
}

}  // namespace
