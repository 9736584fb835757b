// SPDX-License-Identifier: Apache-2.0

// The job daemon of one system root.
//
// Manages the jobs whose files are in the root: holds their endpoints, starts and restarts their
// programs, installs and removes them for authorized callers. Exits by itself when it has no job
// and has had no request for a while, on SIGTERM or SIGINT, and when its control endpoint is
// removed or replaced.
//
// Threading: one thread; signals are handled by the loop.
// Ownership: owns everything in the root while it runs. The caller ensures that there is only one
//   daemon per root (DaemonLock.h).
// Errors: the constructor throws ServiceError. A request that fails gets the cause as its reply; a
//   job file that cannot be used is logged and left alone.
// Order: requests are handled one after another; a reply that waits for a process delays no other.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "jobd/ChildTask.h"
#include "jobd/ControlServer.h"
#include "jobd/EventLoop.h"
#include "jobd/HelperInstaller.h"
#include "jobd/Job.h"
#include "jobd/RootDirectories.h"
#include "jobd/SystemLog.h"
#include "platform/services/Control.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/JobFile.h"
#include "platform/services/SystemRoot.h"
#include "platform/services/UnixSocket.h"

namespace jobd {

class Daemon {
 public:
  static constexpr std::chrono::milliseconds kDefaultIdleTime{5000};

  Daemon(const platform::SystemRoot& root, RootDirectories directories,
         std::chrono::milliseconds idleTime);

  /// Returns when the daemon ends. All endpoints listen before this is called.
  void run() { loop_.run(); }

 private:
  using Reply = ControlServer::Reply;
  using Jobs = std::map<std::string, std::unique_ptr<Job>>;

  void watchSignals();
  void watchRunDirectory();
  void loadJobs();
  void loadJob(const std::string& label);
  void authorize(const Question& question, const Decided& decided);
  void handle(const platform::ControlRequest& request, platform::FileDescriptor descriptor,
              const Reply& reply);
  void bless(const std::string& label, platform::FileDescriptor helper, const Reply& reply);
  void finishBless(const std::string& label, const ChildTask::Outcome& copied, const Reply& reply);
  void copyEnded(const std::string& label);
  void adopt(platform::JobDescription description, const Reply& reply);
  void remove(const std::string& label, bool wait, const Reply& reply);
  void retire(Jobs::iterator job, const std::function<void()>& gone);
  void replyWithStatus(const Reply& reply) const;
  void refuseTakenNames(const platform::JobDescription& description) const;
  void refuseLiveEndpoints(const platform::JobDescription& description) const;
  [[nodiscard]] bool isLabelOfJob(const std::string& name) const;
  void updateIdleTimer();
  void endIfIdle();
  void shutDown();
  void stopWhenEmpty();

  platform::SystemRoot root_;
  RootDirectories directories_;
  EventLoop loop_;
  SystemLog log_;
  HelperInstaller installer_;
  JobContext context_;
  std::chrono::milliseconds idleTime_;
  /// A request that waits because the job's executable is being copied.
  struct Waiting {
    platform::ControlRequest request;
    platform::FileDescriptor descriptor;
    Reply reply;
  };
  struct Copy {
    std::unique_ptr<ChildTask> task;
    std::vector<Waiting> waiting;
  };
  static constexpr std::size_t kMaximumCopies = 4;  ///< at a time, including hanging ones

  void changeJob(const platform::ControlRequest& request, platform::FileDescriptor descriptor,
                 const Reply& reply);

  Jobs jobs_;
  Jobs departing_;  ///< removed, but their processes are still running
  std::vector<std::unique_ptr<Job>> departed_;
  std::map<std::string, Copy> copies_;  ///< by label
  std::vector<std::unique_ptr<ChildTask>> endedCopies_;
  bool isShuttingDown_ = false;
  platform::FileDescriptor signals_;
  platform::FileDescriptor changes_;
  EventLoop::Token signalWatch_;
  EventLoop::Token changeWatch_;
  EventLoop::Token idleTimer_;
  EventLoop::Token sweep_;
  EventLoop::Token copySweep_;
  EventLoop::Token leftOutTimer_;
  std::unique_ptr<ControlServer> server_;
};

}  // namespace jobd
