// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <fstream>
#include <future>
#include <string>
#include <thread>

#include "platform/xpc/ConnectionCore.h"
#include "platform/xpc/QueueThread.h"
#include "tests/support/OtherUser.h"

namespace platform::xpc {
namespace {

void* tellThread(void* promise) {
  static_cast<std::promise<std::thread::id>*>(promise)->set_value(std::this_thread::get_id());
  return nullptr;
}

constexpr std::chrono::seconds kPatience{20};

TEST(PreparedThread, CallsWhatIsBegunOnAThreadOfItsOwn) {
  PreparedThread thread = PreparedThread::make();
  ASSERT_TRUE(thread);
  std::promise<std::thread::id> promise;
  auto called = promise.get_future();
  thread.begin(&tellThread, &promise);
  EXPECT_FALSE(thread);
  ASSERT_EQ(called.wait_for(kPatience), std::future_status::ready);
  EXPECT_NE(called.get(), std::this_thread::get_id());
}

TEST(PreparedThread, MovesToANewOwner) {
  PreparedThread first = PreparedThread::make();
  PreparedThread second = std::move(first);
  EXPECT_FALSE(first);  // NOLINT: the moved-from state is what is tested
  ASSERT_TRUE(second);
  std::promise<std::thread::id> promise;
  auto called = promise.get_future();
  first = std::move(second);
  ASSERT_TRUE(first);
  first.begin(&tellThread, &promise);
  EXPECT_EQ(called.wait_for(kPatience), std::future_status::ready);
}

/// As the kernel counts them; a listing of /proc/self/task misses some while others end.
std::size_t threadsOfThisProcess() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("Threads:")) return std::stoul(line.substr(line.find('\t')));
  return 0;
}

/// Waits until there are at most `count` threads and returns how many there are.
std::size_t threadsOnceNoMoreThan(std::size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  std::size_t now = threadsOfThisProcess();
  for (; now > count && std::chrono::steady_clock::now() < deadline; now = threadsOfThisProcess())
    std::this_thread::yield();
  return now;
}

TEST(PreparedThread, EndsUnbegunWithItsOwner) {
  // The first count may include a thread of an earlier test; a leak here would make every count
  // larger than the one before.
  std::size_t last = threadsOfThisProcess();
  int same = 0;
  for (int round = 0; round < 10 && same < 2; ++round) {
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(PreparedThread::make());
    const std::size_t now = threadsOnceNoMoreThan(last);
    ASSERT_GT(now, 0U);
    ASSERT_LE(now, last);
    same = now == last ? same + 1 : 0;
    last = now;
  }
  EXPECT_EQ(same, 2);
}

/// Runs `act` in a process of its own whose user the limit on threads binds: it does not bind a
/// superuser.
std::string asAnyUser(const std::function<std::string()>& act) {
  return testsupport::asUser(testsupport::isSuperuser() ? testsupport::kOtherUser : ::getuid(),
                             act);
}

bool forbidThreads() {
  const rlimit none{0, 0};
  return ::setrlimit(RLIMIT_NPROC, &none) == 0;
}

std::string withoutThreads(const std::function<std::string()>& act) {
  return asAnyUser([&] { return forbidThreads() ? act() : std::string("no limit"); });
}

TEST(PreparedThread, IsEmptyWhereThereIsNoThreadToBeHad) {
  EXPECT_EQ(withoutThreads([] { return PreparedThread::make() ? "a thread" : "empty"; }), "empty");
}

TEST(PreparedThread, AThreadThatIsNotToBeHadIsNotSaidToHaveStarted) {
  EXPECT_EQ(
      withoutThreads([] { return startDetachedThread("name", [] {}) ? "started" : "not started"; }),
      "not started");
}

TEST(PreparedThread, IsAllThatAnAcceptedConnectionNeeds) {
  const auto resume = [] {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0)
      return "no sockets";
    const auto core = ConnectionCore::accepted(ends[0], ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK),
                                               PreparedThread::make());
    if (!forbidThreads()) return "no limit";
    std::promise<void> promise;
    auto called = promise.get_future();
    core->resume();
    core->callOnQueue([&] { promise.set_value(); });
    return called.wait_for(kPatience) == std::future_status::ready ? "its queue" : "nothing";
  };
  EXPECT_EQ(asAnyUser(resume), "its queue");
}

}  // namespace
}  // namespace platform::xpc
