// One run of a job's program.
//
// Threading: one thread. Ownership: the object owns the process's handle and the pipe of its
// output. Dropping it does not
//   end the process; the kernel ends it when the daemon does, so that a job never outlives who
//   could end it.
// Errors: ServiceError when there can be no process. One whose image is missing or none says so in
// the log and ends at once. Order: what the process wrote is in the log before its end is reported,
// once.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "jobd/EventLoop.h"
#include "jobd/LogText.h"
#include "jobd/SystemLog.h"

namespace jobd {

struct ListeningSocket {
  std::string service;
  platform::FileDescriptor socket;
};

struct ProcessPlan {
  std::string label;
  std::vector<std::string> arguments;
  int tools = -1;  ///< the directory where the image lies, under its label
  const std::vector<ListeningSocket>* sockets = nullptr;  ///< handed on as descriptors 3, 4, …
  int root = -1;  ///< the system root's directory, handed on behind the sockets
};

/// How a job's process ended.
struct JobEnd {
  bool isSignal = false;
  int number = 0;  ///< of the signal, or the exit status

  /// "exited with status 1", "ended by signal 9"
  [[nodiscard]] std::string text() const;
};

class JobProcess {
 public:
  using Ended = std::function<void(const JobEnd& end)>;

  JobProcess(EventLoop& loop, SystemLog& log, const ProcessPlan& plan, Ended ended);

  [[nodiscard]] pid_t identifier() const { return identifier_; }
  /// The process itself, never another that got its number.
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
