// SPDX-License-Identifier: Apache-2.0

#include "router/BackgroundLog.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace router {

struct BackgroundLog::Shared {
  explicit Shared(Write sink) : write(std::move(sink)) {}

  const Write write;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<LogEntry> waiting;
  std::uint64_t leftOut = 0;
  bool isEnding = false;
  bool hasEnded = false;
};

BackgroundLog::BackgroundLog(Write write, const Limits& limits)
    : limits_(limits),
      shared_(std::make_shared<Shared>(std::move(write))),
      thread_([shared = shared_] { run(*shared); }) {}

BackgroundLog::~BackgroundLog() {
  {
    std::unique_lock lock(shared_->mutex);
    shared_->isEnding = true;
    shared_->changed.notify_all();
    const bool hasEnded =
        shared_->changed.wait_for(lock, limits_.farewell, [this] { return shared_->hasEnded; });
    if (!hasEnded) {
      thread_.detach();
      return;
    }
  }
  thread_.join();
}

void BackgroundLog::add(LogEntry entry) {
  const std::lock_guard lock(shared_->mutex);
  if (shared_->waiting.size() >= limits_.waiting) {
    ++shared_->leftOut;
    return;
  }
  shared_->waiting.push_back(std::move(entry));
  shared_->changed.notify_all();
}

void BackgroundLog::run(Shared& shared) {
  std::unique_lock lock(shared.mutex);
  for (;;) {
    shared.changed.wait(lock, [&] { return !shared.waiting.empty() || shared.isEnding; });
    if (shared.waiting.empty()) break;
    const auto entries = std::exchange(shared.waiting, {});
    const std::uint64_t leftOut = std::exchange(shared.leftOut, 0);
    lock.unlock();
    for (const LogEntry& entry : entries) shared.write(entry);
    if (leftOut > 0) shared.write({platform::LogLine::of<row::linesNotWritten>(leftOut), {}, true});
    lock.lock();
  }
  shared.hasEnded = true;
  shared.changed.notify_all();
}

}  // namespace router
