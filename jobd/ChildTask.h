// SPDX-License-Identifier: Apache-2.0

// Work on other people's files, done by a child process of the daemon.
//
// A read may block for ever (on an unresponsive file system), and what is read may be large. So the
// blocking and the memory are the child's, not the daemon's, and the child is killed when it takes
// too long.
//
// Threading: one thread.
// Ownership: owns the child's handle; the child dies with the object or with the daemon.
// Errors: ServiceError if no child can be started; the work's own errors arrive as its outcome.
// Order: `done` once, then `gone` once, when the child has ended.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "jobd/EventLoop.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/ServiceError.h"

namespace jobd {

class ChildTask {
 public:
  /// Runs in the child; its result must be short. A ServiceError is passed on.
  using Work = std::function<std::string()>;
  struct Outcome {
    platform::ServiceErrorCode code = platform::ServiceErrorCode::None;
    std::string text;  ///< the result, or the cause of the failure
  };
  struct Plan {
    std::string name;              ///< of the work, for messages: "the copy of com.x"
    std::vector<int> descriptors;  ///< what the work needs open; all others are closed
    Work work;
    std::chrono::milliseconds timeout{20'000};
  };
  using Done = std::function<void(const Outcome& outcome)>;

  ChildTask(EventLoop& loop, const Plan& plan, Done done, std::function<void()> gone);
  ChildTask(const ChildTask&) = delete;
  ChildTask& operator=(const ChildTask&) = delete;
  ~ChildTask();

  /// Whether it has been given up, and only its end is awaited.
  [[nodiscard]] bool isGivenUp() const { return !done_; }

 private:
  void giveUp();
  void takeEnd();
  [[nodiscard]] Outcome readOutcome(int status) const;

  std::string name_;
  Done done_;
  std::function<void()> gone_;
  pid_t identifier_ = -1;
  platform::FileDescriptor process_;
  platform::FileDescriptor result_;
  EventLoop::Token endWatch_;
  EventLoop::Token timeout_;
};

}  // namespace jobd
