#include "jobd/JobProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string>

#include "tests/support/HelperImages.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using jobd::EventLoop;
using jobd::JobProcess;
using platform::FileDescriptor;

constexpr const char* label = "com.quillmar.sleeper";
constexpr int pipeBytes = 1 << 20;

FileDescriptor open(const std::string& path, int flags) {
  return FileDescriptor(::open(path.c_str(), flags | O_CLOEXEC));
}

/// The end of the pipe that the job writes to.
FileDescriptor outputOf(const JobProcess& job) {
  return open("/proc/" + std::to_string(job.identifier()) + "/fd/1", O_WRONLY | O_NONBLOCK);
}

int waitingIn(const FileDescriptor& pipe) {
  int bytes = -1;
  EXPECT_EQ(::ioctl(pipe.get(), FIONREAD, &bytes), 0);
  return bytes;
}

int fill(const FileDescriptor& pipe) {
  EXPECT_GE(::fcntl(pipe.get(), F_SETPIPE_SZ, pipeBytes), pipeBytes);
  const std::string lines(4096, '\n');
  while (::write(pipe.get(), lines.data(), lines.size()) > 0) {
  }
  return waitingIn(pipe);
}

TEST(JobProcess, OthersHaveTheirTurnWhileAJobWritesWithoutEnd) {
  const testsupport::TemporaryDirectory temporary;
  const std::string directory = temporary.path().string();
  testsupport::makeImage(WLHID_MKIMAGE, {label, "1.0", "/bin/sh", {}}, temporary.path() / label);
  const auto tools = open(directory, O_RDONLY | O_DIRECTORY);
  const std::vector<jobd::ListeningSocket> noSockets;
  EventLoop loop;
  jobd::SystemLog log(open(directory, O_RDONLY | O_DIRECTORY));
  const jobd::ProcessPlan plan{
      label, {"sh", "-c", "echo ready; exec sleep 600"}, tools.get(), &noSockets, tools.get()};
  const JobProcess job(loop, log, plan, [&](const std::string&) { loop.stop(); });

  FileDescriptor output;
  int written = 0;
  int left = 0;
  const FileDescriptor always(::eventfd(1, EFD_CLOEXEC));
  const auto other = loop.watch(always.get(), EPOLLIN, [&] {
    if (!output) {
      // Before it is the program, the process is a copy of this one and its output another.
      if (testsupport::readFile(directory + "/system.log").find("ready") == std::string::npos)
        return;
      output = outputOf(job);
      written = left = fill(output);
    } else if (left == written) {
      left = waitingIn(output);
      if (left < written) job.signal(SIGKILL);
    }
  });
  loop.run();
  EXPECT_GE(written, pipeBytes);
  EXPECT_LT(left, written);
  EXPECT_GE(left, written - 64 * 1024) << "of what waits, so much a turn at most";
}

}  // namespace
