// The job daemon of one system root.
//
// Keeps the jobs whose files lie in the root: holds their endpoints, starts and restarts their
// programs, installs and removes them for those who may ask. Ends by itself when it keeps no job
// and nobody has asked for a while, when it is told to (SIGTERM, SIGINT), and when its control
// endpoint is taken away under it.
//
// Threading: one thread; signals are taken by the loop. Ownership: owns everything of the root
// while it runs; that there
//   is one daemon a root is the caller's care (DaemonLock.h).
// Errors: the constructor throws ServiceError. A request that fails gets its cause as reply; a job
// file that cannot be kept
//   is noted in the log and left alone.
// Order: requests are handled one after another; a reply that waits for a process holds up nobody
// else.
#pragma once

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

namespace jobd {

class Daemon {
 public:
  static constexpr std::chrono::milliseconds defaultIdleTime{5000};

  Daemon(const platform::SystemRoot& root, RootDirectories directories,
         std::chrono::milliseconds idleTime);

  /// Until it ends. All endpoints listen before this is called.
  void run() { loop_.run(); }

 private:
  using Reply = ControlServer::Reply;
  using Jobs = std::map<std::string, std::unique_ptr<Job>>;

  void watchSignals();
  void watchRunDirectory();
  void loadJobs();
  void loadJob(const std::string& label);
  void authorize(const platform::PeerCredentials& caller, const std::string& label,
                 const std::function<void(bool)>& decided);
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
  void considerIdleness();
  void endIfIdle();
  void shutDown();
  void stopWhenEmpty();

  platform::SystemRoot root_;
  RootDirectories directories_;
  EventLoop loop_;
  SystemLog log_;
  HelperInstaller installer_;
  JobSurroundings surroundings_;
  std::chrono::milliseconds idleTime_;
  /// A request for a job whose executable is being copied waits for its turn.
  struct Waiting {
    platform::ControlRequest request;
    platform::FileDescriptor descriptor;
    Reply reply;
  };
  struct Copy {
    std::unique_ptr<ChildTask> task;
    std::vector<Waiting> waiting;
  };
  static constexpr std::size_t maximumCopies = 4;  ///< at a time, those that hang included

  void changeJob(const platform::ControlRequest& request, platform::FileDescriptor descriptor,
                 const Reply& reply);

  Jobs jobs_;
  Jobs departing_;  ///< removed, their processes not yet gone
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
