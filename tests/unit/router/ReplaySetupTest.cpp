// SPDX-License-Identifier: Apache-2.0

// Adding recordings as devices, and removing devices.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <set>
#include <thread>

#include "ReplayFixture.h"

namespace {

namespace fs = std::filesystem;
using router::DeviceDescription;
using router::DeviceError;
using router::OpenDevice;
using router::ReplayDevice;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kMouse =
    "R: 22 05 01 09 02 a1 01 09 30 15 81 25 7f 75 08 95 01 81 06 85 01 c0 00 00\n";

using ReplaySetupTest = ReplayTest;

TEST_F(ReplaySetupTest, ALinkThatIsAddedMeansWhatItLeadsTo) {
  fs::create_directory_symlink(directory_, directory_ / "linked");
  fs::create_symlink(directory_ / "linked/mouse.hid", directory_ / "link.hid");
  add(directory_ / "link.hid");
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list()[0].source, "replay link.hid");
  EXPECT_FALSE(fs::is_symlink(recordings() / "link.hid"));
  EXPECT_EQ(contentOf(recordings() / "link.hid"), kRecording);
}

TEST_F(ReplaySetupTest, WhatBecomesOfTheFileThatWasAddedDoesNotMatter) {
  const auto id = add(recording_);
  write("mouse.hid", "nonsense");
  EXPECT_EQ(list().size(), 1U);
  fs::remove(recording_);
  EXPECT_EQ(list().size(), 1U);
  const auto opened = open(id);
  const router::StopSignal stop;
  std::span<const std::uint8_t> report;
  ASSERT_EQ(opened->next(stop, &report), OpenDevice::Next::Report);
  EXPECT_THAT(report, ElementsAre(1));
}

TEST_F(ReplaySetupTest, ACopyIsNoMoreReadableThanTheFile) {
  for (const mode_t mode : {0600U, 0640U, 0664U, 0755U}) {
    ASSERT_EQ(::chmod(recording_.c_str(), mode), 0);
    add(recording_);
    struct stat status {};
    ASSERT_EQ(::stat((recordings() / "mouse.hid").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, (0600U | (mode & 0044U)));
    EXPECT_TRUE(router::removeReplayDevice(root(), "mouse"));
  }
}

TEST_F(ReplaySetupTest, TheSameRecordingIsKnownByItsContent) {
  const auto first = add(recording_);
  EXPECT_EQ(add(write("elsewhere/mouse.hid", kRecording)), first);
  std::string text = kRecording;
  text.replace(text.find("A Mouse"), 7, "B Mouse");  // of the same length
  const auto second = add(write("third/mouse.hid", text));
  EXPECT_NE(second, first);
  EXPECT_NE(add(write("fourth/mouse.hid", kRecording + std::string("E: 1.0 1 04\n"))), second);
  EXPECT_EQ(add(recording_), first);
  EXPECT_EQ(add(directory_ / "third/mouse.hid"), second);
  EXPECT_THAT(copies(), ElementsAre("mouse-2.hid", "mouse-3.hid", "mouse.hid"));
  // The first is gone, and the second is unchanged.
  EXPECT_TRUE(router::removeReplayDevice(root(), "mouse"));
  EXPECT_EQ(add(directory_ / "third/mouse.hid"), second);
}

TEST_F(ReplaySetupTest, ACopyWhoseConfigurationIsGoneIsInNobodysWay) {
  writeCopy("mouse.hid", "left behind");
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, IsEmpty());
  add(recording_);
  EXPECT_EQ(list()[0].source, "replay mouse-2.hid");
  EXPECT_EQ(contentOf(recordings() / "mouse.hid"), "left behind");
}

TEST_F(ReplaySetupTest, RemovingTakesTheCopyAlong) {
  add(recording_);
  add(write("other.hid", kRecording));
  EXPECT_TRUE(router::removeReplayDevice(root(), "mouse"));
  EXPECT_THAT(copies(), ElementsAre("other.hid"));
  fs::remove(recordings() / "other.hid");
  EXPECT_TRUE(router::removeReplayDevice(root(), "other"));
  EXPECT_THAT(router::configuredReplayDevices(root()), IsEmpty());
}

TEST_F(ReplaySetupTest, ACopyThatAnotherConfigurationPlaysStays) {
  add(recording_);
  configureReplay("second", "mouse.hid");
  EXPECT_TRUE(router::removeReplayDevice(root(), "mouse"));
  EXPECT_EQ(list().size(), 1U);
  EXPECT_TRUE(router::removeReplayDevice(root(), "second"));
  EXPECT_THAT(copies(), IsEmpty());
}

TEST_F(ReplaySetupTest, RemovingAConfigurationOfAnOlderVersionLeavesTheRecording) {
  configureReplay("old", recording_.string());
  EXPECT_TRUE(router::removeReplayDevice(root(), "old"));
  EXPECT_TRUE(fs::exists(recording_));
}

TEST_F(ReplaySetupTest, WhatIsReplacedTakesItsCopyAlong) {
  const auto first = add(recording_, "a");
  EXPECT_EQ(add(recording_, "a"), first);
  EXPECT_THAT(copies(), ElementsAre("a.hid"));
  const fs::path other = write("other.hid", kRecording + std::string("E: 1.0 1 04\n"));
  EXPECT_NE(add(other, "a"), first);
  EXPECT_THAT(copies(), ElementsAre("a-2.hid"));
  EXPECT_EQ(contentOf(recordings() / "a-2.hid"), contentOf(other));
  EXPECT_EQ(list().size(), 1U);
}

TEST_F(ReplaySetupTest, WithoutAConfigurationThereIsNoCopy) {
  fs::create_directories(directory_ / "etc/hideventrouter/a.plist/in the way");
  EXPECT_THAT(refusalOf(recording_, "a"), HasSubstr("a.plist: cannot be written"));
  EXPECT_THAT(copies(), IsEmpty());
}

TEST_F(ReplaySetupTest, AFileThatCannotBeCopiedLeavesNothing) {
  const fs::path large = write("large.hid", kRecording + ("#" + std::string(100'000, 'x')));
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{50'000, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::string refusal = refusalOf(large);
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(refusal, large.string() + ": cannot be copied into " + recordings().string() +
                         ": File too large");
  EXPECT_THAT(copies(), IsEmpty());
  EXPECT_THAT(router::configuredReplayDevices(root()), IsEmpty());
}

TEST_F(ReplaySetupTest, WhatKilledProcessesLeftIsRemoved) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  writeCopy(".recording." + std::to_string(child) + ".0", "a part");
  const std::string own = ".recording." + std::to_string(::getpid()) + ".9999";
  writeCopy(own, "on its way");
  add(recording_);
  EXPECT_THAT(copies(), ElementsAre(own, "mouse.hid"));
}

TEST_F(ReplaySetupTest, OfManyThatAreAddedAtOnceEachIsOne) {
  constexpr std::size_t kThreads = 8;
  std::vector<fs::path> files;
  for (std::size_t i = 0; i < kThreads; ++i) {
    std::string text = kRecording;
    text.replace(text.find("A Mouse"), 7, "Mouse " + std::to_string(i));
    files.push_back(write("from" + std::to_string(i) + "/mouse.hid", text));
  }
  std::vector<std::thread> threads;
  for (const fs::path& file : files)
    threads.emplace_back([this, file] { EXPECT_NO_THROW(add(file)); });
  for (std::thread& thread : threads) thread.join();
  std::set<std::string> names;
  for (const DeviceDescription& device : list()) names.insert(device.name);
  EXPECT_EQ(names.size(), kThreads);
  EXPECT_THAT(problems_, IsEmpty());
  EXPECT_EQ(copies().size(), kThreads);
}

TEST_F(ReplaySetupTest, WhatCannotBePlayedIsNotAdded) {
  ReplayDevice device;
  device.recording = directory_ / "none.hid";
  EXPECT_THROW(router::addReplayDevice(root(), device), DeviceError);
  device.recording = write("broken.hid", "R: 1 c0\nE: 0.0 1 01\n");
  EXPECT_THROW(router::addReplayDevice(root(), device), DeviceError);
  device.recording = write("two.hid", kMouse + std::string("E: 0.0 2 01\n"));
  EXPECT_THROW(router::addReplayDevice(root(), device), DeviceError);
  device.recording = recording_;
  device.configuration = "../escape";
  EXPECT_THROW(router::addReplayDevice(root(), device), DeviceError);
  device.configuration = "fine";
  device.device = 1;
  EXPECT_THROW(router::addReplayDevice(root(), device), DeviceError);
  EXPECT_FALSE(fs::exists(directory_ / "etc"));
}

TEST_F(ReplaySetupTest, AddingReplacesNoOtherDevice) {
  ReplayDevice device;
  device.recording = recording_;
  const auto first = router::addReplayDevice(root(), device);
  EXPECT_EQ(router::addReplayDevice(root(), device), first);
  device.recording = write("elsewhere/mouse.hid", kRecording + std::string("E: 1.0 1 04\n"));
  const auto second = router::addReplayDevice(root(), device);
  EXPECT_NE(second, first);
  device.repeat = true;
  EXPECT_NE(router::addReplayDevice(root(), device), second);
  EXPECT_EQ(list().size(), 3U);
  device.recording = write("\u043c\u044b\u0448\u044c.hid", kRecording);
  router::addReplayDevice(root(), device);
  device.recording = write("\u0434\u043e\u043c.hid", kRecording + std::string("E: 1.0 1 04\n"));
  router::addReplayDevice(root(), device);
  EXPECT_EQ(list().size(), 5U);
  EXPECT_THAT(problems_, IsEmpty());
}

TEST_F(ReplaySetupTest, TheNameOfAFileMayBeOfAnyLengthAndKind) {
  ReplayDevice device;
  for (const std::string& name :
       {std::string(240, 'x') + ".hid", std::string(".hid"), std::string("a b.hid")}) {
    device.recording = write(name, kRecording);
    EXPECT_NO_THROW(router::addReplayDevice(root(), device)) << name;
  }
  EXPECT_EQ(list().size(), 3U);
  EXPECT_TRUE(fs::exists(directory_ / "etc/hideventrouter" / (std::string(100, 'x') + ".plist")));
}

TEST_F(ReplaySetupTest, ANameIsMadeOfWhatANameMayHold) {
  const std::pair<const char*, const char*> names[] = {{"azAZ09-_.b.hid", "azAZ09-_.b"},
                                                       {"a`b{c@d[e:f.hid", "a_b_c_d_e_f"},
                                                       {"a  (1).hid", "a_1_"},
                                                       {".a.hid", "_a"},
                                                       {"..a.hid", "_.a"},
                                                       {"_ _.hid", "__"}};
  for (const auto& [file, name] : names) {
    add(write(file, kRecording));
    ASSERT_EQ(list().size(), 1U) << file;
    EXPECT_TRUE(router::removeReplayDevice(root(), name)) << file;
  }
}

TEST_F(ReplaySetupTest, OnlyANumberMakesANameOneOfTheSame) {
  // The same settings and content under names that are not derived from this recording's.
  for (const char* name : {"mous", "mouse-", "mouse-x", "mouse-2x", "mouse2", "mouse.2", "other"}) {
    writeCopy(std::string(name) + ".hid", kRecording);
    configureReplay(name, std::string(name) + ".hid");
  }
  const std::size_t before = list().size();
  const auto id = add(recording_);
  EXPECT_EQ(list().size(), before + 1);
  EXPECT_EQ(add(recording_), id);
  EXPECT_TRUE(router::removeReplayDevice(root(), "mouse"));
  writeCopy("mouse-29.hid", kRecording);
  configureReplay("mouse-29", "mouse-29.hid");
  add(recording_);
  EXPECT_EQ(list().size(), before + 1) << "the one with a number plays it already";
}

TEST_F(ReplaySetupTest, ADeviceWithOtherSettingsIsAnother) {
  std::vector<ReplayDevice> devices(5);
  devices[1].speed = {2, false};
  devices[2].speed.maximum = true;
  devices[3].repeat = true;
  devices[4].name = "Left";
  std::set<std::uint64_t> ids;
  for (int i = 0; i < 2; ++i) {
    for (ReplayDevice& device : devices) {
      device.recording = recording_;
      ids.insert(router::addReplayDevice(root(), device));
    }
  }
  EXPECT_EQ(ids.size(), devices.size());
  EXPECT_EQ(list().size(), devices.size());
}

TEST_F(ReplaySetupTest, ALongNameIsTheSameNameWhenItIsAddedAgain) {
  ReplayDevice device;
  device.recording = recording_;
  device.name = std::string(200, 'n') + "\n";
  const auto id = router::addReplayDevice(root(), device);
  EXPECT_EQ(router::addReplayDevice(root(), device), id);
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list()[0].name, std::string(127, 'n') + "…");
}

TEST_F(ReplaySetupTest, AConfigurationMayHaveTheLongestName) {
  const std::string longest(200, 'c');
  add(recording_, longest);
  EXPECT_THAT(copies(), ElementsAre(std::string(100, 'c') + ".hid"));
  EXPECT_EQ(list().size(), 1U);
  EXPECT_EQ(refusalOf(recording_, longest + "c"),
            "'" + longest + "c' is not a valid name for a device's configuration");
}

TEST_F(ReplaySetupTest, AConfigurationThatLostItsCopyKeepsItsName) {
  add(recording_);
  fs::remove(recordings() / "mouse.hid");
  add(recording_);
  EXPECT_THAT(copies(), ElementsAre("mouse-2.hid")) << "the old device did not play it";
  const auto configured = router::configuredReplayDevices(root());
  ASSERT_EQ(configured.size(), 2U);
  EXPECT_EQ(configured[0].configuration, "mouse");
  EXPECT_FALSE(configured[0].problem.empty());
  EXPECT_EQ(configured[1].configuration, "mouse-2");
  // Naming the configuration makes it whole again.
  add(recording_, "mouse");
  EXPECT_THAT(copies(), ElementsAre("mouse-2.hid", "mouse.hid"));
  EXPECT_EQ(list().size(), 2U);
}

TEST_F(ReplaySetupTest, AnUnreadableConfigurationOfThatNameIsReplaced) {
  write("etc/hideventrouter/a.plist", "nonsense");
  add(recording_, "a");
  EXPECT_EQ(list().size(), 1U);
  EXPECT_THAT(problems_, IsEmpty());
}

TEST_F(ReplaySetupTest, WhyARecordingCannotBePlayedIsSaid) {
  const fs::path broken = write("broken.hid", "R: 1 c0\nE: 0.0 1 01\n");
  EXPECT_EQ(refusalOf(broken),
            broken.string() +
                ": report descriptor, offset 0: a collection is closed that was not opened");
  const fs::path two = write("two.hid", "R: 2 05 01\nE: 0.0 2 01\n");
  EXPECT_EQ(refusalOf(two), two.string() + ":2: 2 bytes are announced, 1 follow");
  EXPECT_EQ(refusalOf(recording_, "../escape"),
            "'../escape' is not a valid name for a device's configuration");
  try {
    add(directory_ / "none.hid");
    ADD_FAILURE() << "it was added";
  } catch (const DeviceError& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
  }
}

TEST_F(ReplaySetupTest, WhatCannotBeRemovedIsNamed) {
  const fs::path configuration = directory_ / "etc/hideventrouter/x.plist";
  fs::create_directories(configuration);
  const auto refusal = [this](const char* name) -> std::pair<std::string, std::error_code> {
    try {
      router::removeReplayDevice(root(), name);
    } catch (const DeviceError& error) {
      return {error.what(), error.code()};
    }
    return {"removed", {}};
  };
  const auto isDirectory = std::make_error_code(std::errc::is_a_directory);
  EXPECT_EQ(refusal("x"),
            std::pair(configuration.string() + ": cannot be removed: Is a directory", isDirectory));
  fs::create_directories(recordings() / "r.hid");
  configureReplay("y", "r.hid");
  EXPECT_EQ(refusal("y"),
            std::pair((recordings() / "r.hid").string() + ": cannot be removed: Is a directory",
                      isDirectory));
  EXPECT_FALSE(fs::exists(directory_ / "etc/hideventrouter/y.plist"));
}

TEST_F(ReplaySetupTest, ADeviceBeyondTheLastThatIsListedIsSaidToBe) {
  for (int i = 0; i < 1024; ++i) write("etc/hideventrouter/c" + std::to_string(i) + ".plist", "");
  EXPECT_EQ(refusalOf(recording_, "z"), "z.plist: was written, but cannot be read back");
}

TEST_F(ReplaySetupTest, ListingMayPassOverProblems) {
  add(recording_);
  write("etc/hideventrouter/broken.plist", "nonsense");
  EXPECT_EQ(router::listDevices(root(), nullptr).size(), 1U);
}

}  // namespace
