// SPDX-License-Identifier: Apache-2.0

// Reads a hidraw node beside whatever else reads it, so that the two can be compared.
//
// The kernel keeps 64 reports for each reader. So this one runs with real-time priority where it
// may, and prints nothing while reports keep coming.
#include <fcntl.h>
#include <linux/hidraw.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "tests/vm/programs/Program.h"

namespace vm {
namespace {

constexpr std::string_view kUsage =
    "usage: node-reader NODE [COUNT]\n"
    "Prints each report of a hidraw node as \"SECONDS HEX\", when the device pauses: until COUNT\n"
    "reports have come, the node is gone (\"gone REASON\") or SIGTERM arrives. Begins with "
    "\"open\".\n";

constexpr int kPauseMilliseconds = 50;

struct Report {
  timespec time{};
  std::vector<std::uint8_t> bytes;
};

platform::FileDescriptor terminationSignal() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  return platform::FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC));
}

/// Fails without the right to, which is as well: a quiet device needs neither.
void becomePunctual() {
  const sched_param parameters{.sched_priority = 10};
  (void)::sched_setscheduler(0, SCHED_FIFO, &parameters);
  (void)::mlockall(MCL_CURRENT | MCL_FUTURE);
}

class Reader {
 public:
  Reader(const std::string& node, std::int64_t count)
      : node_(openFile(node, O_RDONLY | O_NONBLOCK)), left_(count) {}

  void readAll() {
    const platform::FileDescriptor signal = terminationSignal();
    bool terminated = false;
    while (!terminated && !ended_) {
      std::array<pollfd, 2> sources{pollfd{node_.get(), POLLIN, 0},
                                    pollfd{signal.get(), POLLIN, 0}};
      const bool quiet =
          ::poll(sources.data(), sources.size(), reports_.empty() ? -1 : kPauseMilliseconds) == 0;
      if (sources[0].revents != 0) takeReports();
      terminated = sources[1].revents != 0;
      if (quiet) print();
    }
    print();
    if (!reason_.empty()) say("gone " + reason_);
  }

 private:
  void takeReports() {
    std::array<std::uint8_t, HID_MAX_DESCRIPTOR_SIZE> bytes{};
    while (!ended_) {
      const ssize_t length = ::read(node_.get(), bytes.data(), bytes.size());
      if (length < 0 && errno == EINTR) continue;
      if (length < 0) {
        if (errno == EAGAIN) return;
        reason_ = std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): there is one thread
        ended_ = true;
        return;
      }
      Report report;
      ::clock_gettime(CLOCK_MONOTONIC, &report.time);
      report.bytes.assign(bytes.begin(), bytes.begin() + length);
      reports_.push_back(std::move(report));
      ended_ = left_ > 0 && --left_ == 0;
    }
  }

  void print() {
    for (const Report& report : reports_)
      std::printf("%lld.%06ld %s\n", static_cast<long long>(report.time.tv_sec),
                  report.time.tv_nsec / 1000, hex(report.bytes).c_str());
    std::fflush(stdout);
    reports_.clear();
  }

  platform::FileDescriptor node_;
  std::int64_t left_;
  bool ended_ = false;
  std::string reason_;
  std::vector<Report> reports_;
};

void serve(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments.size() > 2) throw UsageError();
  Reader reader(arguments[0], arguments.size() == 2 ? number(arguments[1]) : 0);
  becomePunctual();
  say("open");
  reader.readAll();
}

}  // namespace
}  // namespace vm

int main(int argc, char** argv) {
  return vm::run(vm::serve, argc, argv, vm::kUsage);
}
