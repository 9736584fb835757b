// SPDX-License-Identifier: Apache-2.0

#include "jobd/ChildTask.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>

#include "tests/unit/jobd/FileOperations.h"

namespace {

using namespace std::chrono_literals;
using jobd::ChildTask;
using platform::ServiceError;
using platform::ServiceErrorCode;

struct TaskRun {
  ChildTask::Outcome outcome;
  int turnsMeanwhile = 0;
};

/// Runs the work until its child has ended, and counts iterations of the loop meanwhile.
TaskRun run(ChildTask::Work work, std::chrono::milliseconds timeout = 30'000ms,
            std::vector<int> descriptors = {}) {
  jobd::EventLoop loop;
  TaskRun result;
  jobd::EventLoop::Token tick;
  std::function<void()> turn = [&] {
    ++result.turnsMeanwhile;
    tick = loop.after(1ms, turn);
  };
  turn();
  std::optional<ChildTask> task;
  task.emplace(
      loop, ChildTask::Plan{"the work", std::move(descriptors), std::move(work), timeout},
      [&](const auto& outcome) { result.outcome = outcome; }, [&] { loop.stop(); });
  loop.run();
  return result;
}

TEST(ChildTask, HandsOverResultsAndErrors) {
  const auto good = run([] { return std::string("one two"); }).outcome;
  EXPECT_EQ(good.code, ServiceErrorCode::None);
  EXPECT_EQ(good.text, "one two");
  EXPECT_EQ(run([] { return std::string(); }).outcome.code, ServiceErrorCode::None);
  const auto refused = run([]() -> std::string {
                         throw ServiceError(ServiceErrorCode::InvalidImage, "no image");
                       }).outcome;
  EXPECT_EQ(refused.code, ServiceErrorCode::InvalidImage);
  EXPECT_EQ(refused.text, "no image");
  const auto failed = run([]() -> std::string { throw std::runtime_error("no memory"); }).outcome;
  EXPECT_EQ(failed.code, ServiceErrorCode::FileSystem);
  EXPECT_EQ(failed.text, "no memory");
}

TEST(ChildTask, WorkThatNeverEndsIsGivenUpAndHoldsUpNobody) {
  const TaskRun hung = run(
      []() -> std::string {
        for (;;) ::pause();
      },
      20ms);
  EXPECT_EQ(hung.outcome.code, ServiceErrorCode::TimedOut);
  EXPECT_EQ(hung.outcome.text, "the work took too long: a file that it reads does not answer");
  EXPECT_GT(hung.turnsMeanwhile, 1);
}

TEST(ChildTask, AChildThatDiesIsAFailure) {
  const auto outcome = run([]() -> std::string { ::_exit(0); }).outcome;
  EXPECT_EQ(outcome.code, ServiceErrorCode::FileSystem);
  EXPECT_THAT(outcome.text, testing::HasSubstr("ended without a result"));
}

TEST(ChildTask, AResultThatMovesInPiecesArrivesWhole) {
  const auto result = [] {
    fileoperations::limitWrites({3, -EINTR, 2});
    return std::string("com.example.helper com.example.helper.more");
  };
  fileoperations::limitReads({1, -EINTR, 5});
  const auto outcome = run(result).outcome;
  fileoperations::limitReads({});
  EXPECT_EQ(outcome.code, ServiceErrorCode::None);
  EXPECT_EQ(outcome.text, "com.example.helper com.example.helper.more");
}

TEST(ChildTask, HalfAResultIsNone) {
  const auto outcome = run([] {
                         fileoperations::limitWrites({13, -EIO});
                         return std::string("com.example.helper");
                       }).outcome;
  EXPECT_EQ(outcome.code, ServiceErrorCode::FileSystem);
  EXPECT_THAT(outcome.text, testing::HasSubstr("ended without a result"));
}

TEST(ChildTask, TheChildHasNothingOpenThatItWasNotGiven) {
  const platform::FileDescriptor one(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const platform::FileDescriptor secret(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  const platform::FileDescriptor other(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const auto open = [](int descriptor) {
    return ::fcntl(descriptor, F_GETFD) >= 0 ? std::string("open ") : std::string("closed ");
  };
  const auto outcome = run([&] { return open(one.get()) + open(secret.get()) + open(other.get()); },
                           30'000ms, {other.get(), one.get()})
                           .outcome;
  EXPECT_EQ(outcome.text, "open closed open ");
}

TEST(ChildTask, AChildDiesWithItsTask) {
  jobd::EventLoop loop;
  std::array<int, 2> life{};
  ASSERT_EQ(::pipe2(life.data(), O_CLOEXEC), 0);
  {
    const ChildTask task(loop,
                         ChildTask::Plan{"the work",
                                         {life[1]},
                                         []() -> std::string {
                                           for (;;) ::pause();
                                         }},
                         nullptr, nullptr);
    ::close(life[1]);
  }
  char c = 0;
  EXPECT_EQ(::read(life[0], &c, 1), 0);  // returns when the child has ended
  ::close(life[0]);
}

TEST(ChildTask, AResultIsShort) {
  EXPECT_EQ(run([] { return std::string(4094, 'x'); }).outcome.text, std::string(4094, 'x'));
  EXPECT_EQ(run([] { return std::string(5000, 'x'); }).outcome.text, std::string(4094, 'x'));
}

TEST(ChildTask, AnErrorMayHaveNoWords) {
  const auto outcome =
      run([]() -> std::string { throw ServiceError(ServiceErrorCode::Busy, ""); }).outcome;
  EXPECT_EQ(outcome.code, ServiceErrorCode::Busy);
  EXPECT_EQ(outcome.text, "");
}

TEST(ChildTask, AChildThatFailsIsAFailureWhateverItWrote) {
  for (const int status : {1, 42}) {
    const auto outcome = run([status] {
                           fileoperations::exitAfterWriting(status);
                           return std::string("com.example.helper");
                         }).outcome;
    EXPECT_EQ(outcome.code, ServiceErrorCode::FileSystem);
    EXPECT_EQ(outcome.text, "the work failed: its process ended without a result");
  }
}

TEST(ChildTask, TheChildKeepsItsStreamsAndClosesBetweenWhatItWasGiven) {
  std::vector<platform::FileDescriptor> many;
  for (int i = 0; i < 12; ++i) many.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  // Two adjacent ones, two with one in between, one twice, and others around them.
  const std::vector<int> given{many[8].get(), many[2].get(), many[3].get(), many[5].get(),
                               many[5].get()};
  const auto outcome = run(
                           [&] {
                             std::string open;
                             for (int i = 0; i < 1024; ++i)
                               if (::fcntl(i, F_GETFD) >= 0) open += std::to_string(i) + " ";
                             return open;
                           },
                           30'000ms, given)
                           .outcome;
  std::string expected = "0 1 2 ";
  for (const int i : {2, 3, 5, 8})
    expected += std::to_string(many[static_cast<std::size_t>(i)].get()) + " ";
  EXPECT_THAT(outcome.text, testing::MatchesRegex(expected + "[0-9]+ "));  // and the result pipe
}

TEST(ChildTask, IsGivenUpOnceItTookTooLong) {
  jobd::EventLoop loop;
  std::optional<ChildTask> task;
  bool wasGivenUp = false;
  int outcomes = 0;
  task.emplace(
      loop,
      ChildTask::Plan{"the work",
                      {},
                      []() -> std::string {
                        for (;;) ::pause();
                      },
                      10ms},
      [&](const auto&) { ++outcomes; },
      [&] {
        wasGivenUp = task->isGivenUp();
        loop.stop();
      });
  EXPECT_FALSE(task->isGivenUp());
  loop.run();
  EXPECT_TRUE(wasGivenUp);
  EXPECT_EQ(outcomes, 1);
}

TEST(ChildTask, LeavesNoDescriptorAndNoChild) {
  const auto open = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  };
  while (::waitpid(-1, nullptr, 0) > 0) {  // children of dropped tasks
  }
  const auto before = open();
  (void)run([] { return std::string("x"); });
  EXPECT_EQ(open(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(ChildTask, AChildDiesWithItsDaemon) {
  std::array<int, 2> life{};
  ASSERT_EQ(::pipe2(life.data(), O_CLOEXEC), 0);
  const pid_t daemon = ::fork();
  if (daemon == 0) {
    jobd::EventLoop loop;
    const ChildTask task(loop,
                         ChildTask::Plan{"the work",
                                         {life[1]},
                                         [&]() -> std::string {
                                           if (::write(life[1], "x", 1) != 1) ::_exit(1);
                                           for (;;) ::pause();
                                         }},
                         nullptr, nullptr);
    for (;;) ::pause();
  }
  ::close(life[1]);
  char c = 0;
  EXPECT_EQ(::read(life[0], &c, 1), 1);  // it is running
  ::kill(daemon, SIGKILL);
  ::waitpid(daemon, nullptr, 0);
  EXPECT_EQ(::read(life[0], &c, 1), 0);
  ::close(life[0]);
}

}  // namespace
