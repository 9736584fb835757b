// SPDX-License-Identifier: Apache-2.0

// The job daemon of the system's own root.
//
// systemd starts it when somebody connects, and runs the job: this daemon only installs and removes
// what applications bring (the first layer, SystemPlaces.h), and keeps the administrator's grants.
// It serves callers of any user, decides nothing itself, and exits when it has had no caller for a
// while.
//
// What it refuses whatever the authority says: any label but the router's; an image with another
// service; an image that is not trusted. An image older than what is installed, by an application
// or a package, needs a right of its own.
//
// Threading: one thread; SIGTERM and SIGINT are handled by the loop. The authority, the stop
//   of the router and the question how it fares are answered on this thread.
// Ownership: owns the socket, and the first layer's files while it runs. systemd ensures that there
//   is only one.
// Errors: the constructor throws ServiceError. A request that fails gets the cause as its reply.
// Order: one change at a time; a caller who comes in between is told to try again. A caller who
//   hangs up withdraws the question that is open.
#pragma once

#include <memory>
#include <string>

#include "jobd/ChildTask.h"
#include "jobd/ControlServer.h"
#include "jobd/EventLoop.h"
#include "jobd/HelperInstaller.h"
#include "jobd/QuestionThrottle.h"
#include "jobd/RootDirectories.h"
#include "jobd/RouterReport.h"

namespace jobd {

/// What the daemon needs of the rest of the system.
struct SystemSeams {
  /// Called with "" when the router has been stopped or was not running, else with the cause.
  using Stopped = std::function<void(const std::string& problem)>;

  using Told = std::function<void(const RouterReport& router)>;

  Authority authority;  ///< null: everything is refused
  std::function<void(const Stopped& stopped)> stopRouter;
  std::function<void(const Told& told)> askRouter;  ///< null: nothing is known
  ImageCheck trust;                                 ///< runs in a child process
};

class SystemDaemon {
 public:
  static constexpr std::chrono::milliseconds kDefaultIdleTime{5000};

  SystemDaemon(EventLoop& loop, const platform::SystemRoot& root, RootDirectories directories,
               platform::FileDescriptor listening, SystemSeams seams,
               std::chrono::milliseconds idleTime = kDefaultIdleTime);

 private:
  using Reply = ControlServer::Reply;
  /// The change under way.
  struct Change {
    Caller caller;
    std::string label;
    Reply reply;
    std::unique_ptr<ChildTask> copy;
  };

  void watchSignals();
  void cleanUp();
  void authorize(const Question& question, const Decided& decided);
  void ask(const Question& question, const Decided& decided);
  void handle(const Caller& caller, const platform::ControlRequest& request,
              platform::FileDescriptor descriptor, const Reply& reply);
  void begin(const Caller& caller, const platform::ControlRequest& request,
             platform::FileDescriptor helper, const Reply& reply);
  void stage(platform::FileDescriptor helper);
  void takeStaged(const ChildTask::Outcome& outcome);
  void install(const StagedHelper& staged);
  void putInPlace(const StagedHelper& staged);
  void remove();
  void stopRouter(const std::string& what);
  void finish(const platform::ControlReply& reply);
  void fail(const std::exception& error);
  template <class Step>
  void attempt(const Step& step);
  void replyWithStatus(const Reply& reply) const;
  void updateIdleTimer();
  void endIfIdle();

  EventLoop& loop_;
  platform::SystemRoot root_;
  RootDirectories directories_;
  HelperInstaller installer_;
  SystemSeams seams_;
  std::chrono::milliseconds idleTime_;
  QuestionThrottle throttle_;
  std::unique_ptr<Change> change_;
  std::unique_ptr<ChildTask> endedCopy_;
  platform::FileDescriptor signals_;
  EventLoop::Token signalWatch_;
  EventLoop::Token idleTimer_;
  EventLoop::Token sweep_;
  std::unique_ptr<ControlServer> server_;
};

}  // namespace jobd
