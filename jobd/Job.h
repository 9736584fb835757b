// SPDX-License-Identifier: Apache-2.0

// One job: its endpoints, its process, and when a connection to the former starts the latter.
//
//   Waiting    listens; the first connection starts the process
//   Running    the process accepts its connections itself
//   HeldBack   it ended too soon after its start; connections stay in the backlog until the delay
//              is over
//   Stopping   it was asked to end, and is killed if it does not in time
//
// Threading: one thread.
// Ownership: owns the listening sockets and the process. Callbacks are kept until they have run,
//   once.
// Errors: ServiceError from listen() and replaceWith(). A process that cannot be started counts as
//   a crash.
// Order: callbacks run in the order of the calls, after the process has ended.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "jobd/CrashThrottle.h"
#include "jobd/EventLoop.h"
#include "jobd/JobProcess.h"
#include "jobd/RootDirectories.h"
#include "jobd/SystemLog.h"
#include "platform/services/Control.h"
#include "platform/services/JobFile.h"

namespace jobd {

/// What all jobs of a daemon share.
struct JobContext {
  EventLoop& loop;
  SystemLog& log;
  const RootDirectories& directories;
};

class Job {
 public:
  using Gone = std::function<void()>;
  static constexpr std::chrono::milliseconds kGracePeriod{5000};

  Job(const JobContext& context, platform::JobDescription description)
      : context_(context), description_(std::move(description)) {}
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  /// Opens the endpoints and waits for a connection. Throws if the job names a program other than
  /// its label's helper; each start checks that again.
  void listen();
  /// Continues as another version of itself, or unchanged if an endpoint cannot be opened. The
  /// endpoints of both versions stay open throughout; the old process is ended first, then `done`
  /// is called, and the next connection starts the new one.
  void replaceWith(platform::JobDescription description, Gone done);
  /// Removes the endpoints and ends the process; `gone` is called when it has ended.
  void retire(Gone gone);
  /// Kills the process, without letting it clean up.
  void kill();

  [[nodiscard]] const platform::JobDescription& description() const { return description_; }
  /// Whether it holds the service's endpoint.
  [[nodiscard]] bool offers(const std::string& service) const;
  [[nodiscard]] platform::JobStatus status() const;

 private:
  [[nodiscard]] bool isStopping() const { return !whenGone_.empty(); }
  void refuseAnotherProgram() const;
  void openEndpoints(const std::vector<std::string>& services);
  [[nodiscard]] std::vector<ListeningSocket> openMissing(
      const std::vector<std::string>& services) const;
  void closeEndpoint(const ListeningSocket& endpoint) const;
  void awaitConnection();
  void start();
  void launch();
  void processEnded(const JobEnd& end);
  void holdBack(CrashThrottle::Duration ran);
  void stop(Gone gone);
  void finishStopping();

  JobContext context_;
  platform::JobDescription description_;
  std::vector<ListeningSocket> endpoints_;
  std::vector<EventLoop::Token> watches_;
  std::unique_ptr<JobProcess> process_;
  EventLoop::Clock::time_point startedAt_;
  CrashThrottle throttle_;
  EventLoop::Token heldBack_;
  EventLoop::Clock::time_point heldBackUntil_;
  EventLoop::Token graceTimer_;
  std::vector<Gone> whenGone_;
  bool isRetired_ = false;
  std::int64_t starts_ = 0;
  std::string lastEnd_;
};

}  // namespace jobd
