// SPDX-License-Identifier: Apache-2.0

// Each change is followed by a bounded wait for the watch; a watch that misses it fails the test.
#include "router/ReplayWatch.h"

#include <poll.h>

#include "ReplayFixture.h"

namespace {

class ReplayWatchTest : public ReplayTest {
 protected:
  /// Whether a change is noticed.
  [[nodiscard]] bool notices() const {
    constexpr int kPatience = 30'000;
    pollfd poll{watch_->descriptor(), POLLIN, 0};
    return ::poll(&poll, 1, kPatience) == 1 && watch_->take();
  }
  /// Takes what is there without waiting.
  void settle() const {
    while (watch_->take()) continue;
  }

  const std::unique_ptr<router::ReplayWatch> watch_ = router::ReplayWatch::begin(root());
};

TEST_F(ReplayWatchTest, NoticesTheFirstDeviceOfARoot) {
  ASSERT_NE(watch_, nullptr);
  add(recording_);
  EXPECT_TRUE(notices());
}

TEST_F(ReplayWatchTest, NoticesThatADeviceComesAndGoes) {
  add(recording_, "first");
  settle();
  add(recording_, "second");
  EXPECT_TRUE(notices());
  settle();
  router::removeReplayDevice(root(), "second");
  EXPECT_TRUE(notices());
}

TEST_F(ReplayWatchTest, NoticesARecordingThatIsReplacedInPlace) {
  add(recording_, "first");
  settle();
  writeCopy(copies().at(0), std::string(kRecording) + "E: 000000.000300 1 04\n");
  EXPECT_TRUE(notices());
}

TEST_F(ReplayWatchTest, NoticesADirectoryThatIsReplaced) {
  add(recording_, "first");
  settle();
  const auto directory = directory_ / "etc/hideventrouter";
  std::filesystem::rename(directory, directory_ / "etc/away");
  EXPECT_TRUE(notices());
  add(recording_, "second");
  EXPECT_TRUE(notices());
  settle();
  write(directory / "third.plist", "x");
  EXPECT_TRUE(notices());
}

TEST_F(ReplayWatchTest, WithoutARootThereIsNoWatch) {
  EXPECT_EQ(router::ReplayWatch::begin(platform::SystemRoot(directory_ / "missing")), nullptr);
}

TEST_F(ReplayWatchTest, TheDescriptorOfADeviceIsTheRecordings) {
  const std::uint64_t id = add(recording_);
  const auto sources = router::deviceSources(root());
  const auto descriptor = sources.front()->reportDescriptorOf(id);
  ASSERT_TRUE(descriptor);
  EXPECT_EQ(descriptor->size(), 17U);
  EXPECT_FALSE(sources.front()->reportDescriptorOf(id + 1));
  EXPECT_NE(sources.front()->watch(), nullptr);
}

}  // namespace
