// SPDX-License-Identifier: Apache-2.0

// The memory that an idle connection holds. In a program of its own: the stacks of other tests'
// threads would be counted too, and go at any time.
#include <fstream>

#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

class IdleMemory : public XPCTest {};

/// The resident part of the small mappings without huge pages, in KiB: stacks, and the receive
/// buffers. Large ones belong to a sanitizer.
std::size_t residentBuffers() {
  std::ifstream maps("/proc/self/smaps");
  constexpr std::size_t kSmall = 4096;
  std::size_t resident = 0;
  std::size_t size = 0;
  std::size_t ofMapping = 0;
  for (std::string line; std::getline(maps, line);) {
    if (line.starts_with("Size:")) size = std::stoull(line.substr(5));
    if (line.starts_with("Rss:")) ofMapping = std::stoull(line.substr(4));
    const bool isPlain = line.starts_with("VmFlags:") && line.find(" nh") != std::string::npos;
    if (isPlain && size <= kSmall) resident += ofMapping;
  }
  return resident;
}

constexpr std::size_t kReleased = 50;  // KiB at least, of about 60

/// Whether the memory that was busy is given back. No event signals this.
bool isReleased(std::size_t busy, std::chrono::seconds patience) {
  const auto limit = std::chrono::steady_clock::now() + patience;
  while (residentBuffers() + kReleased > busy) {
    if (std::chrono::steady_clock::now() >= limit) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace

TEST_F(IdleMemory, ALargeMessageLeavesNone) {
  std::atomic<std::size_t> busy{0};
  service_->prepare = [&busy](End& end) {
    end.talker->onData = [&busy] { busy = residentBuffers(); };
  };
  const auto end = connect();
  const auto message = NSData::dataWithBytes(std::vector<std::uint8_t>(60'000));
  // The first rounds may find that stacks have grown by as much as was given back. Later ones
  // don't.
  constexpr int kRounds = 4;
  bool wasReleased = false;
  for (int round = 0; round < kRounds && !wasReleased; ++round) {
    client_.proxy()->data_tag(message, round);
    ASSERT_TRUE(end->log.waitFor("data 60000 " + std::to_string(round)));
    wasReleased = isReleased(busy, kPatience / kRounds);
  }
  EXPECT_TRUE(wasReleased) << busy << " KiB while busy, now " << residentBuffers();
}
