// SPDX-License-Identifier: Apache-2.0

#include "tests/integration/jobd/SuiteFixture.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>

namespace jobdtest {

using platform::FileDescriptor;

Process::Process(pid_t identifier)
    : identifier_(identifier),
      handle_(static_cast<int>(::syscall(SYS_pidfd_open, identifier, 0))) {}

void Process::signal(int number) const {
  ::syscall(SYS_pidfd_send_signal, handle_.get(), number, nullptr, 0);
}

bool Process::waitForEnd(int milliseconds) const {
  if (!handle_) return true;  // it had ended before it could be opened
  pollfd entry{handle_.get(), POLLIN, 0};
  return ::poll(&entry, 1, milliseconds) == 1;
}

bool Process::hasGone() const {
  return waitForEnd(kTimeoutMilliseconds);
}
bool Process::isThere() const {
  return !waitForEnd(0);
}

void Client::send(const std::string& line) const {
  const std::string text = line + "\n";
  EXPECT_EQ(::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(text.size()))
      << line;
}

std::string Client::receive() {
  for (;;) {
    if (const auto end = rest_.find('\n'); end != std::string::npos) {
      const std::string line = rest_.substr(0, end);
      rest_.erase(0, end + 1);
      return line;
    }
    pollfd entry{socket_.get(), POLLIN, 0};
    if (::poll(&entry, 1, kTimeoutMilliseconds) != 1) return "nothing came";
    std::array<char, 4096> buffer{};
    const ssize_t got = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
    if (got <= 0) return "end of stream";
    rest_.append(buffer.data(), static_cast<std::size_t>(got));
  }
}

JobdSuite::JobdSuite(const std::string& rootBelowTemporary)
    : root(temporary.path() / rootBelowTemporary) {}

void JobdSuite::SetUp() {
  ::setenv("WLHID_JOBD", WLHID_JOBD_PROGRAM, 1);
  platform::SystemRoot::setCurrent(root);
  platform::setAuthorizationAgent(
      platform::fixedAuthorizationAgent(platform::errAuthorizationSuccess));
}

void JobdSuite::TearDown() {
  platform::setAuthorizationAgent(nullptr);
  ::setenv("WLHID_JOBD", WLHID_JOBD_PROGRAM, 1);
  std::optional<platform::ControlReply> status;
  try {
    status = daemon().status();
  } catch (const std::exception&) {
  }
  if (!status) return;
  const Process process(static_cast<pid_t>(status->daemonProcessIdentifier));
  process.signal(SIGTERM);
  if (process.hasGone()) return;
  process.signal(SIGKILL);
  ADD_FAILURE() << "the job daemon did not end when told to";
}

platform::ControlReply JobdSuite::change(const platform::ControlRequest& request,
                                         int descriptor) const {
  try {
    return daemon().authorize(request.label).ask(request, descriptor);
  } catch (const platform::ServiceError& error) {
    platform::ControlReply reply;
    reply.code = error.code();
    reply.message = error.what();
    return reply;
  }
}

platform::ControlReply JobdSuite::bless(const std::filesystem::path& image,
                                        const std::string& label) const {
  const FileDescriptor file(::open(image.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(file) << image;
  return change({platform::ControlRequest::Operation::Bless, label, true}, file.get());
}

platform::ControlReply JobdSuite::remove(const std::string& label, bool wait) const {
  return change({platform::ControlRequest::Operation::Remove, label, wait}, -1);
}

Process JobdSuite::daemonProcess() const {
  const auto status = daemon().status();
  EXPECT_TRUE(status) << "no daemon is running";
  return Process(status ? static_cast<pid_t>(status->daemonProcessIdentifier) : -1);
}

platform::JobStatus JobdSuite::job(const std::string& label) const {
  const auto status = daemon().status();
  if (status) {
    for (const auto& each : status->jobs) {
      if (each.label == label) return each;
    }
  }
  return {};
}

bool JobdSuite::eventually(const std::function<bool()>& holds) {
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(kTimeoutMilliseconds);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    ::sched_yield();
  }
  return true;
}

platform::ServiceConnectResult JobdSuite::connectResult(const std::string& service) {
  return platform::serviceEndpoints().load()->connectToService(service);
}

Client JobdSuite::connect(const std::string& service) {
  const auto result = connectResult(service);
  EXPECT_EQ(result.outcome, platform::ServiceConnectResult::Outcome::Connected) << result.reason;
  return Client(FileDescriptor(result.descriptor));
}

std::filesystem::path JobdSuite::echoImage(const std::string& version) {
  return image({kEchoLabel, version, ECHO_HELPER, {}});
}

std::filesystem::path JobdSuite::image(const testsupport::ImagePlan& plan) {
  return testsupport::makeImage(WLHID_MKIMAGE, plan,
                                temporary.path() / ("image" + std::to_string(images_++)));
}

}  // namespace jobdtest
