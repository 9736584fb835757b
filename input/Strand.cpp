// SPDX-License-Identifier: Apache-2.0

#include "input/Strand.h"

#include <exception>
#include <string>
#include <utility>

#include "platform/foundation/NSLog.h"
#include "platform/foundation/PrintableText.h"

namespace wlhid {

void Strand::run(Call call) {
  const auto self = std::this_thread::get_id();
  std::unique_lock lock(mutex_);
  if (runner_ != std::thread::id() && runner_ != self) {
    changed_.wait(lock, [this] {
      return isClosed_ || waiting_.size() < kMostWaiting || runner_ == std::thread::id();
    });
  }
  if (isClosed_) return;
  waiting_.push_back(std::move(call));
  if (runner_ == std::thread::id()) runAll(lock);
}

void Strand::post(Call call) {
  const std::lock_guard lock(mutex_);
  if (isClosed_) return;
  waiting_.push_back(std::move(call));
  if (!std::exchange(hasThread_, true))
    std::thread([self = shared_from_this()] { self->work(); }).detach();
  if (runner_ == std::thread::id()) work_.notify_one();
}

void Strand::work() {
  std::unique_lock lock(mutex_);
  while (!isClosed_) {
    if (!waiting_.empty() && runner_ == std::thread::id())
      runAll(lock);
    else
      work_.wait(lock);
  }
}

void Strand::runAll(std::unique_lock<std::mutex>& lock) {
  runner_ = std::this_thread::get_id();
  while (!waiting_.empty()) {
    Call call = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    try {
      call();
    } catch (const std::exception& error) {
      platform::NSLogString(
          platform::printableLine("wlhid: a callback threw: " + std::string(error.what())));
    }
    call = nullptr;
    lock.lock();
    changed_.notify_all();
  }
  runner_ = {};
  changed_.notify_all();
}

void Strand::close() {
  std::deque<Call> dropped;  // without the lock
  std::unique_lock lock(mutex_);
  isClosed_ = true;
  dropped.swap(waiting_);
  work_.notify_one();
  changed_.notify_all();
  if (runner_ != std::this_thread::get_id())
    changed_.wait(lock, [this] { return runner_ == std::thread::id(); });
}

}  // namespace wlhid
