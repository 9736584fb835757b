// SPDX-License-Identifier: Apache-2.0

// One run of a job's program.
//
// Threading: one thread.
// Ownership: owns the handle of the process and the pipe of its output. Destroying the object does
//   not end the process, but the kernel ends it with the daemon, so a job never outlives what could
//   end it.
// Errors: ServiceError if no process can be started. A process whose image is missing or invalid
//   logs that and ends at once.
// Order: the output of the process is in the log before its end is reported, once.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "jobd/EventLoop.h"
#include "jobd/LogText.h"
#include "jobd/SystemLog.h"
#include "platform/services/FileDescriptor.h"

namespace jobd {

struct ListeningSocket {
  std::string service;
  platform::FileDescriptor socket;
};

struct ProcessPlan {
  std::string label;
  std::vector<std::string> arguments;
  int tools = -1;  ///< the directory of the image, whose name is the label
  const std::vector<ListeningSocket>* sockets = nullptr;  ///< passed as descriptors 3, 4, …
  int root = -1;  ///< the system root's directory, passed after the sockets
};

/// How a job's process ended.
struct JobEnd {
  bool isSignal = false;
  int number = 0;  ///< the signal, or the exit status

  /// "exited with status 1", "ended by signal 9"
  [[nodiscard]] std::string text() const;
};

class JobProcess {
 public:
  using Ended = std::function<void(const JobEnd& end)>;

  JobProcess(EventLoop& loop, SystemLog& log, const ProcessPlan& plan, Ended ended);

  [[nodiscard]] pid_t identifier() const { return identifier_; }
  /// Reaches this process only, never another one that reuses its ID.
  void signal(int number) const;

 private:
  void takeOutput(std::size_t most);
  void takeEnd();
  void writeLine(std::string_view line);

  SystemLog& log_;
  std::string label_;
  Ended ended_;
  pid_t identifier_ = -1;
  platform::FileDescriptor process_;
  platform::FileDescriptor output_;
  LineSplitter lines_;
  EventLoop::Token outputWatch_;
  EventLoop::Token endWatch_;
};

}  // namespace jobd
