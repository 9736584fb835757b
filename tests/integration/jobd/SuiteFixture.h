// SPDX-License-Identifier: Apache-2.0

// What the tests of the job daemon share: a root for each test, an application's calls, and a
// client of the echo helper.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

#include "platform/services/JobDaemon.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceManagement.h"
#include "tests/support/HelperImages.h"
#include "tests/support/TemporaryDirectory.h"

namespace jobdtest {

inline constexpr const char* kEchoLabel = "com.quillmar.echo";
/// How long anything is waited for before it counts as not happening.
inline constexpr int kTimeoutMilliseconds = 30'000;

/// A process that is not our child, held by a descriptor so that its ID cannot be reused.
class Process {
 public:
  explicit Process(pid_t identifier);
  [[nodiscard]] pid_t identifier() const { return identifier_; }
  void signal(int number) const;
  /// Waits for its end.
  [[nodiscard]] bool hasGone() const;
  [[nodiscard]] bool isThere() const;

 private:
  [[nodiscard]] bool waitForEnd(int milliseconds) const;
  pid_t identifier_;
  platform::FileDescriptor handle_;
};

/// A connection to the echo helper.
class Client {
 public:
  explicit Client(platform::FileDescriptor socket) : socket_(std::move(socket)) {}
  void send(const std::string& line) const;
  /// The next line; "end of stream" if there is none, "nothing came" on a timeout.
  std::string receive();
  std::string ask(const std::string& line) {
    send(line);
    return receive();
  }
  /// The helper's process.
  Process process() { return Process(std::stoi(ask("pid"))); }

 private:
  platform::FileDescriptor socket_;
  std::string rest_;
};

class JobdSuite : public testing::Test {
 protected:
  JobdSuite() : JobdSuite("root") {}
  explicit JobdSuite(const std::string& rootBelowTemporary);
  void SetUp() override;
  void TearDown() override;

  [[nodiscard]] platform::JobDaemon daemon() const { return platform::JobDaemon(root); }
  /// With permission for it, like an authorized application.
  [[nodiscard]] platform::ControlReply change(const platform::ControlRequest& request,
                                              int descriptor) const;
  [[nodiscard]] platform::ControlReply bless(const std::filesystem::path& image,
                                             const std::string& label = kEchoLabel) const;
  [[nodiscard]] platform::ControlReply remove(const std::string& label = kEchoLabel,
                                              bool wait = true) const;
  /// The process of the daemon, which must be running.
  [[nodiscard]] Process daemonProcess() const;
  [[nodiscard]] platform::JobStatus job(const std::string& label = kEchoLabel) const;
  /// Asks repeatedly until it holds; false on a timeout.
  [[nodiscard]] static bool eventually(const std::function<bool()>& holds);

  static platform::ServiceConnectResult connectResult(const std::string& service = kEchoLabel);
  static Client connect(const std::string& service = kEchoLabel);

  std::filesystem::path echoImage(const std::string& version = "1.0");
  std::filesystem::path image(const testsupport::ImagePlan& plan);
  [[nodiscard]] std::string log() const { return testsupport::readFile(root.systemLog()); }

  testsupport::TemporaryDirectory temporary;
  platform::SystemRoot root;

 private:
  int images_ = 0;
};

}  // namespace jobdtest
