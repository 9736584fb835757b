#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <iterator>
#include <thread>

#include "platform/xpc/QueueThread.h"

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
  EXPECT_FALSE(first);  // NOLINT: what is left of it is what is asked
  ASSERT_TRUE(second);
  std::promise<std::thread::id> promise;
  auto called = promise.get_future();
  first = std::move(second);
  ASSERT_TRUE(first);
  first.begin(&tellThread, &promise);
  EXPECT_EQ(called.wait_for(kPatience), std::future_status::ready);
}

std::size_t threadsOfThisProcess() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

TEST(PreparedThread, EndsUnbegunWithItsOwner) {
  const std::size_t before = threadsOfThisProcess();
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(PreparedThread::make());
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (threadsOfThisProcess() > before && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  EXPECT_LE(threadsOfThisProcess(), before);  // one of before may have ended meanwhile
}

}  // namespace
}  // namespace platform::xpc
