// Work on files of somebody else's, done by a child of the daemon.
//
// A read may take for ever (a file system that does not answer) and what is read may be large. A
// child waits and holds it instead of the daemon, and is killed when it takes too long.
//
// Threading: one thread. Ownership: owns the child's handle; the child dies with the object or with
// the daemon. Errors: ServiceError when there can be no child; the work's own errors arrive as its
// outcome. Order: `done` once, then `gone` once, when the child is no more.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "jobd/EventLoop.h"
#include "platform/services/ServiceError.h"

namespace jobd {

class ChildTask {
 public:
  /// Runs in the child; its result is short. A ServiceError is handed on.
  using Work = std::function<std::string()>;
  struct Outcome {
    platform::ServiceErrorCode code = platform::ServiceErrorCode::None;
    std::string text;  ///< the result, or the cause
  };
  struct Plan {
    std::string name;              ///< what is done, for messages: "the copy of com.x"
    std::vector<int> descriptors;  ///< what the work needs open; the child has no others
    Work work;
    std::chrono::milliseconds patience{20'000};
  };
  using Done = std::function<void(const Outcome& outcome)>;

  ChildTask(EventLoop& loop, const Plan& plan, Done done, std::function<void()> gone);
  ChildTask(const ChildTask&) = delete;
  ChildTask& operator=(const ChildTask&) = delete;
  ~ChildTask();

  /// Whether it was given up and only its end is waited for.
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
  EventLoop::Token patience_;
};

}  // namespace jobd
