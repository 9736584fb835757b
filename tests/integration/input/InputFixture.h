// SPDX-License-Identifier: Apache-2.0

// An application on a root of its own, with the real job daemon and the real router, which other
// programs install, remove and kill.
//
// Threading: the test's thread. Every wait is bounded.
// Ownership: the daemon, and with it the router, ends with the test.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "WLHIDAccess/Input.h"
#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/SystemRoot.h"
#include "router/Devices.h"
#include "tests/support/TemporaryDirectory.h"

namespace inputtest {

inline constexpr std::chrono::seconds kPatience{60};
extern const char* const kJobDaemon;  ///< its program

/// Lines that the library's threads add and the test waits for.
class Lines {
 public:
  void add(const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
    changed_.notify_all();
  }
  [[nodiscard]] std::vector<std::string> all() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  /// Waits for a line with `part` that came after those that were awaited before.
  void await(const std::string& part) {
    std::unique_lock lock(mutex_);
    const bool came = changed_.wait_for(lock, kPatience, [&] {
      while (next_ < lines_.size())
        if (lines_[next_++].find(part) != std::string::npos) return true;
      return false;
    });
    std::string seen;
    for (const std::string& each : lines_) seen += "\n  " + each;
    EXPECT_TRUE(came) << "no \"" << part << "\" came; all lines:" << seen;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> lines_;
  std::size_t next_ = 0;
};

class InputFixture : public testing::Test {
 protected:
  void SetUp() override {
    ::setenv("WLHID_JOBD", kJobDaemon, 1);
    platform::SystemRoot::setCurrent(root_);
    wlhid::Router::setConsentAgent([](const std::string&) { return wlhid::Consent::Given; });
  }
  void TearDown() override {
    wlhid::Router::setConsentAgent(nullptr);
    try {
      const auto status = platform::JobDaemon(root_).status();
      if (status) endProcess(static_cast<pid_t>(status->daemonProcessIdentifier), SIGTERM);
    } catch (const std::exception&) {
    }
  }

  /// Waits for its end.
  static void endProcess(pid_t process, int signal) {
    const platform::FileDescriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
    if (!handle) return;  // it has ended
    ::kill(process, signal);
    pollfd poll{handle.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&poll, 1, 60'000), 1) << "the process does not end";
  }
  [[nodiscard]] pid_t routerProcess() const {
    const auto status = platform::JobDaemon(root_).status();
    if (!status) return 0;
    for (const auto& job : status->jobs)
      if (job.label == WLHIDEventRouterLabel) return static_cast<pid_t>(job.processIdentifier);
    return 0;
  }
  void killRouter() const {
    const pid_t process = routerProcess();
    ASSERT_GT(process, 0);
    endProcess(process, SIGKILL);
  }
  /// As another program would: this process's clients are not told.
  void installElsewhere(const std::string& image) const {
    const platform::FileDescriptor file(::open(image.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(file);
    platform::ControlRequest request;
    request.operation = platform::ControlRequest::Operation::Bless;
    request.label = std::string(WLHIDEventRouterLabel);
    const auto reply = platform::JobDaemon(root_).authorize(request.label).ask(request, file.get());
    EXPECT_TRUE(reply.succeeded()) << reply.message;
  }
  void removeElsewhere() const {
    platform::ControlRequest request;
    request.operation = platform::ControlRequest::Operation::Remove;
    request.label = std::string(WLHIDEventRouterLabel);
    request.wait = true;
    const auto reply = platform::JobDaemon(root_).authorize(request.label).ask(request, -1);
    EXPECT_TRUE(reply.succeeded()) << reply.message;
  }

  /// A recording with reports of one byte; by default it begins anew at its end, for ever.
  std::uint64_t addDevice(const std::string& name, bool repeat = true) const {
    return addRecording(
        name,
        "R: 19 05 01 09 02 a1 01 09 30 15 81 25 7f 75 08 95 01 81 02 c0\nN: " + name +
            "\nI: 3 0627 0001\nE: 000000.000000 1 01\nE: 000000.010000 1 02\n",
        repeat);
  }
  std::uint64_t addRecording(const std::string& name, const std::string& text,
                             bool repeat = true) const {
    const auto path = temporary_.path() / (name + ".hid");
    testsupport::writeFile(path, text);
    router::ReplayDevice device;
    device.configuration = name;
    device.recording = path;
    device.repeat = repeat;
    return router::addReplayDevice(root_, device);
  }
  /// X in report 1, Y in report 2.
  std::uint64_t addTwoReports(const std::string& name) const {
    return addRecording(name,
                        "R: 27 05 01 09 02 a1 01 15 81 25 7f 75 08 95 01"
                        " 85 01 09 30 81 02 85 02 09 31 81 02 c0\nN: " +
                            name +
                            "\nI: 3 0627 0003\n"
                            "E: 000000.000000 2 01 05\nE: 000000.010000 2 02 06\n");
  }
  void removeDevice(const std::string& name) const { router::removeReplayDevice(root_, name); }

  static std::string ownRouter() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() /
           "Library/LaunchServices" / WLHIDEventRouterLabel;
  }

  const testsupport::TemporaryDirectory temporary_;
  const platform::SystemRoot root_{temporary_.path() / "root"};
};

}  // namespace inputtest
