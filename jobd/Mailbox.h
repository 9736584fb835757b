// SPDX-License-Identifier: Apache-2.0

// Brings work from other threads to the loop's thread.
//
// Threading: post from any thread; the rest, and the work, on the loop's thread.
// Ownership: the loop outlives it. What was not run when it is destroyed is never run.
// Order: as posted.
// Errors: the constructor throws ServiceError if no descriptor is left.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "jobd/EventLoop.h"

namespace jobd {

class Mailbox {
 public:
  explicit Mailbox(EventLoop& loop);
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  void post(std::function<void()> work);

 private:
  void runAll();

  platform::FileDescriptor wakeUp_;
  std::mutex mutex_;
  std::vector<std::function<void()>> waiting_;  // guarded by mutex_
  EventLoop::Token watch_;
};

}  // namespace jobd
