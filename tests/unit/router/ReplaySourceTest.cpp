// SPDX-License-Identifier: Apache-2.0

#include "router/ReplaySource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "ReplayFixture.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "router/Replay.h"

namespace {

namespace fs = std::filesystem;
using platform::NSDictionary;
using platform::NSNumber;
using platform::str;
using router::DeviceDescription;
using router::DeviceError;
using router::OpenDevice;
using router::ReplayDevice;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using ReplaySourceTest = ReplayTest;

TEST_F(ReplaySourceTest, WithoutConfigurationThereAreNoDevices) {
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, IsEmpty());
  EXPECT_EQ(open(0x100000001), nullptr);
}

TEST_F(ReplaySourceTest, AnAddedDeviceIsListed) {
  ReplayDevice device;
  device.recording = recording_;
  const std::uint64_t id = router::addReplayDevice(root(), device);
  EXPECT_GE(id, 0x100000000U);
  EXPECT_LE(id, 0x1ffffffffU);
  EXPECT_THAT(list(),
              ElementsAre(DeviceDescription{id, "A Mouse", 3, 0x627, 1, "replay mouse.hid"}));
  EXPECT_THAT(problems_, IsEmpty());
  EXPECT_TRUE(fs::exists(directory_ / "etc/hideventrouter/mouse.plist"));
}

TEST_F(ReplaySourceTest, AnIDFollowsFromTheConfiguration) {
  ReplayDevice device;
  device.recording = recording_;
  device.configuration = "a";
  const std::uint64_t first = router::addReplayDevice(root(), device);
  EXPECT_EQ(router::addReplayDevice(root(), device), first);
  device.configuration = "b";
  const std::uint64_t second = router::addReplayDevice(root(), device);
  EXPECT_NE(second, first);
  EXPECT_EQ(list().size(), 2U);
  device.speed.maximum = true;
  const std::uint64_t changed = router::addReplayDevice(root(), device);
  EXPECT_NE(changed, second);
  ASSERT_EQ(list().size(), 2U);
  EXPECT_EQ(list()[1].registryEntryID, changed);
}

TEST_F(ReplaySourceTest, ANameOfItsOwnGoesBeforeTheRecordings) {
  ReplayDevice device;
  device.recording = recording_;
  device.name = "Left Mouse";
  router::addReplayDevice(root(), device);
  EXPECT_EQ(list()[0].name, "Left Mouse");
}

TEST_F(ReplaySourceTest, ConfigurationsWrittenByHandMayLeaveOutWhatHasADefault) {
  writeCopy("m.hid", kRecording);
  configureReplay("x", "m.hid");
  configure("y.plist", {{str("Source"), str("replay")},
                        {str("Recording"), str("m.hid")},
                        {str("Speed"), NSNumber::numberWithDouble(2.5)},
                        {str("Repeat"), NSNumber::numberWithBool(true)}});
  EXPECT_EQ(list().size(), 2U);
  EXPECT_THAT(problems_, IsEmpty());
}

TEST_F(ReplaySourceTest, LinksInPlaceOfFilesAreNotFollowed) {
  writeCopy("r.hid", kRecording);
  fs::create_symlink(recording_, recordings() / "link.hid");
  fs::create_symlink("r.hid", recordings() / "beside.hid");
  configureReplay("a", "r.hid");
  fs::copy_file(directory_ / "etc/hideventrouter/a.plist", directory_ / "elsewhere");
  fs::create_symlink(directory_ / "elsewhere", directory_ / "etc/hideventrouter/b.plist");
  configureReplay("c", "link.hid");
  configureReplay("d", "beside.hid");
  ASSERT_EQ(list().size(), 1U);
  ASSERT_EQ(problems_.size(), 3U);
  EXPECT_THAT(problems_[0], HasSubstr("b.plist: is a symbolic link, which is not followed"));
  EXPECT_THAT(problems_[1], HasSubstr("link.hid: is a symbolic link, which is not followed"));
  EXPECT_THAT(problems_[2], HasSubstr("beside.hid: is a symbolic link, which is not followed"));
}

TEST_F(ReplaySourceTest, ARecordingLeadsNowhereElse) {
  writeCopy("r.hid", kRecording);
  writeCopy("deeper/r.hid", kRecording);
  fs::copy_file(recording_, recordings().parent_path() / "beside.hid");
  int number = 0;
  for (const std::string& path :
       {recording_.string(), std::string("../beside.hid"), std::string("deeper/r.hid"),
        std::string("./r.hid"), std::string("r.hid/"), std::string("../recordings/r.hid"),
        std::string("/"), std::string("recordings/r.hid")})
    configureReplay("path" + std::to_string(number++), path);
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_EQ(problems_.size(), 8U);
  for (const std::string& problem : problems_)
    EXPECT_THAT(problem, HasSubstr("remove this device and add its recording again"));
}

TEST_F(ReplaySourceTest, ARecordingHasTheNameOfAFile) {
  writeCopy("r.hid", kRecording);
  writeCopy(".hidden.hid", kRecording);
  int number = 0;
  for (const std::string& name :
       {std::string(".."), std::string("."), std::string(), std::string(".hidden.hid"),
        std::string("r.hid "), std::string("r\n.hid"), std::string(201, 'r')})
    configureReplay("name" + std::to_string(number++), name);
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_EQ(problems_.size(), 7U);
  for (const std::string& problem : problems_)
    EXPECT_THAT(problem,
                HasSubstr("Recording is not the name of a file in the directory recordings"));
}

TEST_F(ReplaySourceTest, OnlyARegularFileIsARecording) {
  const auto id = add(recording_);
  fs::remove(recordings() / "mouse.hid");
  ASSERT_EQ(::mkfifo((recordings() / "mouse.hid").c_str(), 0600), 0);
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, ElementsAre(HasSubstr("recordings/mouse.hid: is not a regular file")));
  EXPECT_EQ(open(id), nullptr);
  fs::remove(recordings() / "mouse.hid");
  fs::create_directory(recordings() / "mouse.hid");
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, ElementsAre(HasSubstr("recordings/mouse.hid: is not a regular file")));
}

TEST_F(ReplaySourceTest, ADirectoryOfRecordingsThatIsALinkIsNotUsed) {
  add(recording_);
  const fs::path elsewhere = directory_ / "elsewhere";
  fs::rename(recordings(), elsewhere);
  fs::create_directory_symlink(elsewhere, recordings());
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, ElementsAre(HasSubstr("cannot open the directory recordings")));
  EXPECT_THAT(refusalOf(write("other.hid", kRecording)),
              HasSubstr("cannot open the directory recordings"));
  EXPECT_EQ(std::distance(fs::directory_iterator(elsewhere), {}), 1);
  EXPECT_TRUE(router::removeReplayDevice(root(), "mouse"));
  EXPECT_TRUE(fs::exists(elsewhere / "mouse.hid"));
}

TEST_F(ReplaySourceTest, ADirectoryOfConfigurationsThatIsALinkIsNotUsed) {
  const fs::path elsewhere = directory_ / "elsewhere";
  fs::create_directories(elsewhere);
  fs::create_directories(directory_ / "etc");
  fs::create_directory_symlink(elsewhere, directory_ / "etc/hideventrouter");
  ReplayDevice device;
  device.recording = recording_;
  EXPECT_THROW(router::addReplayDevice(root(), device), DeviceError);
  EXPECT_TRUE(fs::is_empty(elsewhere));
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, ElementsAre(HasSubstr("cannot open the directory hideventrouter")));
}

TEST_F(ReplaySourceTest, AnUnusableConfigurationIsReportedAndTheOthersStay) {
  writeCopy("m.hid", kRecording);
  const auto recording = std::pair(str("Recording"), str("m.hid"));
  const auto source = std::pair(str("Source"), str("replay"));
  configure("good.plist", {source, recording});
  configure("1.plist", {recording});
  configure("2.plist", {{str("Source"), str("radio")}, recording});
  configure("3.plist", {source});
  configure("4.plist", {source, {str("Recording"), str("a name.hid")}});
  configure("5.plist", {source, {str("Recording"), str("none.hid")}});
  configure("6.plist", {source, recording, {str("Speed"), str("0")}});
  configure("7.plist", {source, recording, {str("Repeat"), str("yes")}});
  configure("8.plist", {source, recording, {str("Device"), NSNumber::numberWithLongLong(-1)}});
  configure("9.plist", {source, recording, {str("Name"), NSNumber::numberWithBool(true)}});
  write("etc/hideventrouter/broken.plist", "<plist");
  write("etc/hideventrouter/.hidden.plist", "<plist");
  write("etc/hideventrouter/notes.txt", "nothing");

  EXPECT_EQ(list().size(), 1U);
  const std::string directory = (directory_ / "etc/hideventrouter").string() + "/";
  EXPECT_THAT(
      problems_,
      ElementsAre(
          directory + "1.plist: Source is not \"replay\"",
          directory + "2.plist: Source is not \"replay\"",
          directory + "3.plist: Recording is missing",
          directory + "4.plist: Recording is not the name of a file in the directory recordings",
          directory + "5.plist: " + (recordings() / "none.hid").string() +
              ": cannot be read: No such file or directory",
          directory + "6.plist: Speed is neither \"max\" nor a number from 0.001 to 1000",
          directory + "7.plist: Repeat is not a boolean",
          directory + "8.plist: Device is not a device number",
          directory + "9.plist: Name is not a string",
          directory + "broken.plist: is not a property list with a dictionary"));
}

TEST_F(ReplaySourceTest, PlaysEveryReportInOrderThenEnds) {
  ReplayDevice device;
  device.recording = recording_;
  device.speed.maximum = true;
  const auto opened = open(router::addReplayDevice(root(), device));
  ASSERT_NE(opened, nullptr);
  EXPECT_TRUE(opened->waitsForReaders());
  EXPECT_EQ(opened->reportDescriptor().size(), 17U);
  const router::StopSignal stop;
  std::span<const std::uint8_t> report;
  for (const std::uint8_t expected : {1, 2, 3}) {
    ASSERT_EQ(opened->next(stop, &report), OpenDevice::Next::Report);
    EXPECT_THAT(report, ElementsAre(expected));
  }
  EXPECT_EQ(opened->next(stop, &report), OpenDevice::Next::Ended);
  EXPECT_EQ(opened->next(stop, &report), OpenDevice::Next::Ended);
}

TEST_F(ReplaySourceTest, RepeatBeginsAgain) {
  ReplayDevice device;
  device.recording = recording_;
  device.repeat = true;
  const auto opened = open(router::addReplayDevice(root(), device));
  EXPECT_FALSE(opened->waitsForReaders());
  const router::StopSignal stop;
  std::span<const std::uint8_t> report;
  for (const std::uint8_t expected : {1, 2, 3, 1, 2, 3, 1}) {
    ASSERT_EQ(opened->next(stop, &report), OpenDevice::Next::Report);
    EXPECT_THAT(report, ElementsAre(expected));
  }
}

TEST_F(ReplaySourceTest, ARecordingWithoutReportsEndsAtOnceEvenIfRepeated) {
  ReplayDevice device;
  device.recording = write("empty.hid", "R: 1 c0\n");
  device.repeat = true;
  EXPECT_THROW(router::addReplayDevice(root(), device),
               DeviceError);  // c0: closes a collection that was not opened
  device.recording = write("empty.hid", "R: 2 05 01\n");
  const auto opened = open(router::addReplayDevice(root(), device));
  const router::StopSignal stop;
  std::span<const std::uint8_t> report;
  EXPECT_EQ(opened->next(stop, &report), OpenDevice::Next::Ended);
}

TEST_F(ReplaySourceTest, AStopEndsAWaitOfAnyLength) {
  ReplayDevice device;
  device.recording = write("slow.hid", "R: 2 05 01\nE: 0.0 1 01\nE: 9999999.0 1 02\n");
  const auto opened = open(router::addReplayDevice(root(), device));
  router::StopSignal stop;
  std::span<const std::uint8_t> report;
  ASSERT_EQ(opened->next(stop, &report), OpenDevice::Next::Report);
  std::thread stopper([&] { stop.raise(); });
  EXPECT_EQ(opened->next(stop, &report), OpenDevice::Next::Stopped);
  stopper.join();
}

/// How many times a file has been opened since the last call.
class OpenCount {
 public:
  explicit OpenCount(const fs::path& file) : watch_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    EXPECT_GE(::inotify_add_watch(watch_, file.c_str(), IN_OPEN), 0);
  }
  OpenCount(const OpenCount&) = delete;
  OpenCount& operator=(const OpenCount&) = delete;
  ~OpenCount() { ::close(watch_); }
  std::size_t take() {
    std::size_t count = 0;
    inotify_event event{};
    while (::read(watch_, &event, sizeof event) > 0) ++count;
    return count;
  }

 private:
  const int watch_;
};

TEST_F(ReplaySourceTest, AFileIsReadAgainOnlyWhenItHasChanged) {
  ReplayDevice device;
  device.recording = recording_;
  const std::uint64_t id = router::addReplayDevice(root(), device);
  router::RouterLimits limits;
  limits.settling = milliseconds(0);
  const auto sources = router::deviceSources(root(), limits);
  EXPECT_EQ(sources.front()->list(&problems_).size(), 1U);
  const fs::path copy = recordings() / "mouse.hid";
  OpenCount recording(copy);
  OpenCount configuration(root().deviceSources() / "mouse.plist");
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(sources.front()->list(&problems_)[0].registryEntryID, id);
    EXPECT_EQ(sources.front()->open(0x42), nullptr);
  }
  EXPECT_EQ(recording.take(), 0U);
  EXPECT_EQ(configuration.take(), 0U);
  // When a recording is opened, it is read once to check it.
  EXPECT_NE(sources.front()->open(id), nullptr);
  std::string text = kRecording;
  text.replace(text.find("A Mouse"), 7, "B Mouse");  // of the same length
  write(copy, text);
  EXPECT_EQ(sources.front()->list(&problems_)[0].name, "B Mouse");
  fs::remove(copy);
  EXPECT_THAT(sources.front()->list(&problems_), IsEmpty());
  EXPECT_EQ(problems_.size(), 1U);
  write(copy, text);
  EXPECT_EQ(sources.front()->list(&problems_).size(), 1U);
}

TEST_F(ReplaySourceTest, AFileThatHasJustChangedIsReadAgain) {
  // Another change could have the same time, so the cached content is not relied on.
  ReplayDevice device;
  device.recording = recording_;
  router::addReplayDevice(root(), device);
  router::RouterLimits limits;
  limits.settling = std::chrono::hours(1);
  const auto sources = router::deviceSources(root(), limits);
  EXPECT_EQ(sources.front()->list(&problems_).size(), 1U);
  OpenCount recording(recordings() / "mouse.hid");
  EXPECT_EQ(sources.front()->list(&problems_).size(), 1U);
  EXPECT_EQ(recording.take(), 1U);
}

TEST_F(ReplaySourceTest, ALongRecordingTakesNoMoreMemoryThanAShortOne) {
  std::string text = kRecording;
  for (int i = 0; i < 60'000; ++i) text += "E: 000001.000000 1 7f\n";
  ReplayDevice device;
  device.recording = write("long.hid", text);
  device.speed.maximum = true;
  const auto id = router::addReplayDevice(root(), device);
  const auto inUse = [] {
    const auto info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const auto sources = router::deviceSources(root());
  const std::size_t before = inUse();
  const auto opened = sources.front()->open(id);
  const router::StopSignal stop;
  std::span<const std::uint8_t> report;
  std::size_t reports = 0;
  std::size_t most = 0;
  while (opened->next(stop, &report) == OpenDevice::Next::Report) {
    if (++reports % 1000 == 0) most = std::max(most, inUse());
  }
  EXPECT_EQ(reports, 60'003U);
  EXPECT_LT(most, before + (std::size_t{128} << 10));
}

TEST_F(ReplaySourceTest, EveryConfigurationIsKnownAlsoWhereNoDeviceComesOfIt) {
  ReplayDevice device;
  device.recording = recording_;
  device.name = "Left";
  const auto id = router::addReplayDevice(root(), device);
  write("etc/hideventrouter/broken.plist", "<plist");
  fs::remove(recordings() / "mouse.hid");
  EXPECT_THAT(list(), IsEmpty());
  const auto configured = router::configuredReplayDevices(root());
  ASSERT_EQ(configured.size(), 2U);
  EXPECT_EQ(configured[0].configuration, "broken");
  EXPECT_FALSE(configured[0].device.has_value());
  EXPECT_EQ(configured[1].configuration, "mouse");
  EXPECT_EQ(configured[1].description.registryEntryID, id);
  EXPECT_EQ(configured[1].description.name, "Left");
  EXPECT_EQ(configured[1].problem, problems_[1]);
  EXPECT_TRUE(router::removeReplayDevice(root(), "broken"));
  EXPECT_TRUE(router::removeReplayDevice(root(), "mouse"));
  EXPECT_FALSE(router::removeReplayDevice(root(), "mouse"));
  EXPECT_THAT(router::configuredReplayDevices(root()), IsEmpty());
}

TEST_F(ReplaySourceTest, AHugeConfigurationIsNotRead) {
  write("etc/hideventrouter/huge.plist", "");
  fs::resize_file(directory_ / "etc/hideventrouter/huge.plist", 65537);
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(problems_, ElementsAre(HasSubstr("huge.plist: is larger than 65536 bytes")));
}

TEST_F(ReplaySourceTest, ARecordingThatVanishedIsAnErrorWithItsCode) {
  ReplayDevice device;
  device.recording = write("gone.hid", kRecording);
  const std::uint64_t id = router::addReplayDevice(root(), device);
  fs::remove(recordings() / "gone.hid");
  EXPECT_EQ(open(id), nullptr);  // it is no longer even listed
  writeCopy("gone.hid", "R: 2 05 01\nE: 0.0 1 01\nE: broken\n");
  try {
    open(id);
    FAIL();
  } catch (const DeviceError& error) {
    EXPECT_THAT(error.what(), HasSubstr("gone.hid:3: the time is not a number of seconds"));
  }
}

TEST_F(ReplaySourceTest, OneThatIsUnusableIsReadAgainOnlyWhenItHasChanged) {
  write("etc/hideventrouter/broken.plist", "<plist");
  configureReplay("missing", "none.hid");
  fs::create_directories(recordings() / "folder.hid");
  configureReplay("folder", "folder.hid");
  router::RouterLimits limits;
  limits.settling = milliseconds(0);
  const auto sources = router::deviceSources(root(), limits);
  EXPECT_THAT(sources.front()->list(&problems_), IsEmpty());
  const auto first = std::exchange(problems_, {});
  EXPECT_EQ(first.size(), 3U);
  const fs::path directory = root().deviceSources();
  OpenCount broken(directory / "broken.plist");
  OpenCount folder(directory / "folder.plist");
  for (int i = 0; i < 10; ++i) {
    problems_.clear();
    EXPECT_THAT(sources.front()->list(&problems_), IsEmpty());
    EXPECT_EQ(problems_, first);
  }
  EXPECT_EQ(broken.take(), 0U);
  EXPECT_EQ(folder.take(), 0U);
  // Any change to it is noticed.
  write("etc/hideventrouter/broken.plist", "nonsense");
  configureReplay("missing", "other.hid");
  fs::remove(recordings() / "folder.hid");
  writeCopy("folder.hid", kRecording);
  writeCopy("other.hid", kRecording);
  problems_.clear();
  EXPECT_EQ(sources.front()->list(&problems_).size(), 2U);
  EXPECT_EQ(problems_.size(), 1U);
  EXPECT_GE(broken.take(), 1U);
}

/// Bytes that this thread has read from files.
std::size_t bytesRead() {
  std::ifstream counts("/proc/thread-self/io");
  std::string key;
  std::size_t value = 0;
  counts >> key >> value;
  return key == "rchar:" ? value : 0;
}

class CheckedRecording : public ReplaySourceTest {
 protected:
  /// Reports with the same time, which at that speed would take an hour if they had no times.
  std::uint64_t addOneMoment() {
    std::string text = "R: 2 05 01\n";
    for (int i = 0; i < kReports; ++i) text += "E: 5.0 1 01\n";
    text += "E: 5.000001 1 02\n# " + std::string(kLength, 'x') + "\n";
    ReplayDevice device;
    device.recording = write("moment.hid", text);
    device.speed.factor = 0.001;
    return router::addReplayDevice(root(), device);
  }
  static std::size_t costOf(const router::DeviceSource& source, std::uint64_t id) {
    const std::size_t before = bytesRead();
    const auto opened = source.open(id);
    const std::size_t cost = bytesRead() - before;
    const router::StopSignal stop;
    std::span<const std::uint8_t> report;
    for (int i = 0; i < kReports; ++i)
      EXPECT_EQ(opened->next(stop, &report), OpenDevice::Next::Report);
    return cost;
  }
  static constexpr int kReports = 500;
  static constexpr std::size_t kLength = 250'000;
  router::RouterLimits limits_;
};

TEST_F(CheckedRecording, IsReadThroughOnceAndItsTimesAreKnownFromThenOn) {
  const auto id = addOneMoment();
  limits_.settling = milliseconds(0);
  const auto sources = router::deviceSources(root(), limits_);
  EXPECT_GT(costOf(*sources.front(), id), kLength);
  for (int i = 0; i < 3; ++i) EXPECT_LT(costOf(*sources.front(), id), kLength);
  // Also if the configuration was rewritten with the same content.
  const fs::path configuration = root().deviceSources() / "moment.plist";
  write(configuration, contentOf(configuration));
  EXPECT_LT(costOf(*sources.front(), id), kLength);
  // But not for another recording.
  const fs::path copy = recordings() / "moment.hid";
  write(copy, contentOf(copy));
  EXPECT_GT(costOf(*sources.front(), id), kLength);
}

TEST_F(CheckedRecording, IsCheckedAgainWhileItMayStillChangeUnnoticed) {
  const auto id = addOneMoment();
  limits_.settling = std::chrono::hours(1);
  const auto sources = router::deviceSources(root(), limits_);
  for (int i = 0; i < 2; ++i) EXPECT_GT(costOf(*sources.front(), id), kLength);
}

TEST_F(ReplaySourceTest, ABoundOnConfigurationsIsTheSources) {
  writeCopy("m.hid", kRecording);
  configureReplay("a", "m.hid");
  configureReplay("b", "m.hid");
  router::RouterLimits limits;
  limits.configurations = 1;
  EXPECT_EQ(router::deviceSources(root(), limits).front()->list(&problems_).size(), 1U);
  EXPECT_THAT(problems_, ElementsAre(HasSubstr("holds more than 1 configurations")));
  limits.configurationBytes = 10;
  problems_.clear();
  EXPECT_THAT(router::deviceSources(root(), limits).front()->list(&problems_), IsEmpty());
  EXPECT_THAT(problems_, testing::Contains(HasSubstr("is larger than 10 bytes")));
}

TEST_F(ReplaySourceTest, ARepeatedRecordingPausesBeforeItBeginsAgain) {
  ReplayDevice device;
  device.recording = write("one.hid", "R: 2 05 01\nE: 0.0 1 01\n");
  device.repeat = true;
  device.speed.factor = 0.001;  // the usual interval takes seconds
  const auto opened = open(router::addReplayDevice(root(), device));
  router::StopSignal stop;
  std::span<const std::uint8_t> report;
  ASSERT_EQ(opened->next(stop, &report), OpenDevice::Next::Report);
  std::thread stopper([&] { stop.raise(); });
  EXPECT_EQ(opened->next(stop, &report), OpenDevice::Next::Stopped);
  stopper.join();
}

TEST_F(ReplaySourceTest, AStoppedOneGivesNothingMoreAlsoAtFullSpeed) {
  ReplayDevice device;
  device.recording = recording_;
  device.speed.maximum = true;
  const auto opened = open(router::addReplayDevice(root(), device));
  router::StopSignal stop;
  stop.raise();
  std::span<const std::uint8_t> report;
  EXPECT_EQ(opened->next(stop, &report), OpenDevice::Next::Stopped);
}

}  // namespace
