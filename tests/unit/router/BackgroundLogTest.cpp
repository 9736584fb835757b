// SPDX-License-Identifier: Apache-2.0

#include "router/BackgroundLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <string>
#include <vector>

namespace {

using platform::LogLine;
using router::BackgroundLog;
using router::LogEntry;
using testing::ElementsAre;

constexpr platform::LogTemplate kLine{"line {count}"};

LogEntry line(int number) {
  return {LogLine::of<kLine>(number)};
}

/// Notes what is written; each write first waits until the sink is open.
class Sink {
 public:
  void operator()(const LogEntry& entry) {
    begun_.set_value();
    begun_ = {};
    open_.wait();
    const std::lock_guard lock(mutex_);
    lines_.push_back(entry.line.text());
  }
  /// To be asked before the entry is added.
  std::future<void> nextWrite() { return begun_.get_future(); }
  void open() { gate_.set_value(); }
  std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  std::promise<void> gate_;
  std::shared_future<void> open_ = gate_.get_future().share();
  std::promise<void> begun_;
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

TEST(BackgroundLog, WritesEverythingInOrderBeforeItEnds) {
  std::vector<std::string> written;
  {
    BackgroundLog log([&](const LogEntry& entry) { written.push_back(entry.line.text()); });
    for (int i = 0; i < 3; ++i) log.add(line(i));
  }
  EXPECT_THAT(written, ElementsAre("line 0", "line 1", "line 2"));
}

TEST(BackgroundLog, AWriteThatHangsHoldsNobodyUpAndWhatDoesNotFitIsCounted) {
  const auto sink = std::make_shared<Sink>();
  {
    BackgroundLog log([sink](const LogEntry& entry) { (*sink)(entry); },
                      {2, std::chrono::seconds(30)});
    auto begun = sink->nextWrite();
    log.add(line(0));
    begun.wait();
    for (int i = 1; i <= 5; ++i) log.add(line(i));
    EXPECT_THAT(sink->lines(), ElementsAre());
    sink->open();
  }
  EXPECT_THAT(sink->lines(),
              ElementsAre("line 0", "line 1", "line 2",
                          "3 lines were left out: the log could not be written, or not fast "
                          "enough"));
}

TEST(BackgroundLog, AWriteThatNeverEndsDoesNotHoldUpTheEnd) {
  const auto sink = std::make_shared<Sink>();
  {
    BackgroundLog log([sink](const LogEntry& entry) { (*sink)(entry); },
                      {2, std::chrono::milliseconds(1)});
    auto begun = sink->nextWrite();
    log.add(line(0));
    begun.wait();
  }
  EXPECT_THAT(sink->lines(), ElementsAre());
  sink->open();
}

}  // namespace
