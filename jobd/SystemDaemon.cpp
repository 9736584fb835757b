// SPDX-License-Identifier: Apache-2.0

#include "jobd/SystemDaemon.h"

#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include "jobd/CallerProgram.h"
#include "jobd/GrantChanges.h"
#include "jobd/GrantFile.h"
#include "jobd/LogTable.h"
#include "jobd/SystemJob.h"
#include "platform/foundation/StandardError.h"
#include "platform/services/InstalledJob.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "platform/services/VersionOrder.h"

namespace jobd {
namespace {

QuestionThrottle::Answer answerOf(const Decision& decision) {
  using Answer = QuestionThrottle::Answer;
  if (decision.kind == Decision::Kind::Yes) return Answer::Yes;
  const bool wasAsked = decision.kind != Decision::Kind::InteractionNotAllowed;
  return wasAsked ? Answer::No : Answer::NobodyToAsk;
}

using platform::ControlReply;
using platform::ControlRequest;
using platform::LogLine;
using platform::ServiceError;
using platform::ServiceErrorCode;

/// For the journal, which systemd connects to standard error.
void note(const LogLine& line) {
  platform::writeLineToStandardError(line);
}

void noteDecision(const Question& question, const Decision& decision) {
  if (question.right == Right::Grant) return;  // the change itself is noted
  const auto& [caller, label, right, prompt, change, presence] = question;
  const std::string program = programOf(caller.process);
  note(decision.kind == Decision::Kind::Yes
           ? LogLine::of<row::permissionGranted>(label, caller.process, program, caller.user)
           : LogLine::of<row::permissionDenied>(label, caller.process, program, caller.user));
}

/// The result of the child that copies a helper: its services are labels, so the first line feed
/// ends them, and the rest is the version.
std::string encoded(const StagedHelper& staged) {
  std::string text;
  for (const auto& service : staged.services) text += service + " ";
  return text + "\n" + staged.version;
}

StagedHelper decoded(const std::string& text) {
  StagedHelper staged;
  const std::size_t end = std::min(text.find('\n'), text.size());
  for (std::size_t begin = 0; begin < end;) {
    const std::size_t space = std::min(text.find(' ', begin), end);
    staged.services.push_back(text.substr(begin, space - begin));
    begin = space + 1;
  }
  if (end < text.size()) staged.version = text.substr(end + 1);
  return staged;
}

}  // namespace

SystemDaemon::SystemDaemon(EventLoop& loop, const platform::SystemRoot& root,
                           RootDirectories directories, platform::FileDescriptor listening,
                           SystemSeams seams, std::chrono::milliseconds idleTime)
    : loop_(loop),
      root_(root),
      directories_(std::move(directories)),
      installer_(directories_, root),
      seams_(std::move(seams)),
      idleTime_(idleTime) {
  watchSignals();
  cleanUp();
  server_ = std::make_unique<ControlServer>(
      loop_, std::move(listening),
      [this](const Question& question, const Decided& decided) { authorize(question, decided); },
      [this](const Caller& caller, const ControlRequest& request,
             platform::FileDescriptor descriptor,
             const Reply& reply) { handle(caller, request, std::move(descriptor), reply); },
      [this] { updateIdleTimer(); });
  updateIdleTimer();
}

/// A change that is under way may be cut off anywhere, as by a crash.
void SystemDaemon::watchSignals() {
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigaddset(&mask, SIGINT);
  ::pthread_sigmask(SIG_BLOCK, &mask, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  signals_.reset(::signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!signals_) throw platform::fileSystemError("cannot receive signals", errno);
  signalWatch_ = loop_.watch(signals_.get(), EPOLLIN, [this] { loop_.stop(); });
}

/// After a daemon that was killed. What can't be cleaned up is no reason not to serve: the change
/// that meets it says what is wrong.
void SystemDaemon::cleanUp() try {
  installer_.removeStagingFiles();
  GrantFile(directories_.root.get()).discardDraft();
  installer_.finishInterrupted(std::string(platform::kSystemJobLabel));
} catch (const ServiceError& error) {
  note(LogLine::of<row::cannotRun>(error.what()));
}

/// What can't be installed here is refused before a person is asked.
void SystemDaemon::authorize(const Question& question, const Decided& decided) try {
  idleTimer_.end();
  checkIsSystemLabel(question.label);
  ask(question, decided);
} catch (const ServiceError& error) {
  decided({Decision::Kind::No, error.what()});
}

void SystemDaemon::ask(const Question& question, const Decided& decided) {
  if (!seams_.authority) {
    decided({Decision::Kind::No, "there is no authority to decide"});
    return;
  }
  const uid_t user = question.caller.user;
  const std::string whyNot = throttle_.begin(user, EventLoop::Clock::now());
  if (!whyNot.empty()) {
    decided({Decision::Kind::No, whyNot});
    return;
  }
  seams_.authority(question, [this, question, user, decided](const Decision& answer) {
    const bool isThere = !question.presence || question.presence->isThere();
    const Decision decision =
        isThere ? answer : Decision{Decision::Kind::No, "the caller has gone"};
    throttle_.end(user, answerOf(decision), EventLoop::Clock::now());
    noteDecision(question, decision);
    decided(decision);
  });
}

void SystemDaemon::handle(const Caller& caller, const ControlRequest& request,
                          platform::FileDescriptor descriptor, const Reply& reply) try {
  idleTimer_.end();
  if (request.operation == ControlRequest::Operation::Status)
    replyWithStatus(reply);
  else if (request.grant)
    changeGrants(
        directories_.root.get(),
        {[this](const Question& question, const Decided& decided) { ask(question, decided); },
         note},
        caller, request, reply);
  else
    begin(caller, request, std::move(descriptor), reply);
} catch (const ServiceError& error) {
  reply(controlReply(error.code(), error.what()));
} catch (const std::exception& error) {
  reply(controlReply(ServiceErrorCode::FileSystem, error.what()));
}

void SystemDaemon::begin(const Caller& caller, const ControlRequest& request,
                         platform::FileDescriptor helper, const Reply& reply) {
  checkIsSystemLabel(request.label);
  if (change_ || endedCopy_)
    throw ServiceError(ServiceErrorCode::Busy,
                       request.label + " is being changed for another caller; try again");
  const bool isBless = request.operation == ControlRequest::Operation::Bless;
  if (isBless && !helper)
    throw ServiceError(ServiceErrorCode::Protocol, "no helper was sent with the request");
  change_ = std::make_unique<Change>(Change{caller, request.label, reply, nullptr});
  attempt([&] { isBless ? stage(std::move(helper)) : remove(); });
}

/// Runs a step of the change under way; its failure ends the change.
template <class Step>
void SystemDaemon::attempt(const Step& step) {
  try {
    step();
  } catch (const std::exception& error) {
    fail(error);
  }
}

void SystemDaemon::stage(platform::FileDescriptor helper) {
  const int staging = helperStaging(directories_);
  ChildTask::Plan plan;
  plan.name = "the copy of " + change_->label;
  plan.descriptors = {staging, helper.get()};
  plan.work = [staging, source = helper.get(), label = change_->label, trust = seams_.trust] {
    return encoded(stageHelper(staging, source, label, trust));
  };
  change_->copy = std::make_unique<ChildTask>(
      loop_, plan,
      [this](const ChildTask::Outcome& outcome) { attempt([&] { takeStaged(outcome); }); },
      [this] {
        // Called from within the task, so it is destroyed in the next iteration.
        sweep_ = loop_.after(std::chrono::milliseconds::zero(), [this] { endedCopy_.reset(); });
      });
}

void SystemDaemon::takeStaged(const ChildTask::Outcome& outcome) {
  endedCopy_ = std::move(change_->copy);
  if (outcome.code != ServiceErrorCode::None) throw ServiceError(outcome.code, outcome.text);
  const StagedHelper staged = decoded(outcome.text);
  checkIsOnlyService(change_->label, staged.services);
  install(staged);
}

/// Going back to an older version brings back its faults, so it takes more than an installation;
/// and so does a version that cannot be compared.
void SystemDaemon::install(const StagedHelper& staged) {
  const std::string newest = newestVersion(root_, change_->label);
  const bool isOlder = platform::isNewer(newest, staged.version) ||
                       (!newest.empty() && !platform::consistsOfNumbers(staged.version));
  if (!isOlder) {
    putInPlace(staged);
    return;
  }
  Question question{change_->caller.credentials, change_->label, Right::ReplaceNewer, {}};
  question.presence = change_->caller.presence;
  ask(question, [this, staged, newest](const Decision& decision) {
    attempt([&] {
      if (decision.kind == Decision::Kind::Yes) return putInPlace(staged);
      throw ServiceError(ServiceErrorCode::NotPermitted,
                         "version " + newest +
                             " is there, and the caller may not replace it "
                             "with the older version " +
                             staged.version);
    });
  });
}

void SystemDaemon::putInPlace(const StagedHelper& staged) {
  installer_.putInPlace(change_->label, staged.services, nullptr);
  note(LogLine::of<row::installed>(change_->label));
  stopRouter("installed");
}

void SystemDaemon::remove() {
  if (!installer_.remove(change_->label))
    throw ServiceError(ServiceErrorCode::NoSuchJob,
                       "no application has installed " + change_->label +
                           "; what a package brought goes with the package (wlhid-router)");
  note(LogLine::of<row::removed>(change_->label));
  stopRouter("removed");
}

/// The next connection starts what is installed now.
void SystemDaemon::stopRouter(const std::string& what) {
  if (!seams_.stopRouter) {
    finish(controlReply());
    return;
  }
  seams_.stopRouter([this, what](const std::string& problem) {
    if (problem.empty()) return finish(controlReply());
    note(LogLine::of<row::cannotStopRouter>(problem));
    finish(controlReply(ServiceErrorCode::Busy,
                        change_->label + " was " + what +
                            ", but the router that is running could not be stopped (" + problem +
                            "): restart it with systemctl restart wlhid-router.service"));
  });
}

void SystemDaemon::fail(const std::exception& error) {
  const auto* const known = dynamic_cast<const ServiceError*>(&error);
  finish(
      controlReply(known != nullptr ? known->code() : ServiceErrorCode::FileSystem, error.what()));
}

void SystemDaemon::finish(const ControlReply& reply) {
  const auto change = std::move(change_);
  discardStagedHelper(helperStaging(directories_), change->label);  // of a refused one
  change->reply(reply);
  updateIdleTimer();
}

void SystemDaemon::replyWithStatus(const Reply& reply) const {
  const std::string label(platform::kSystemJobLabel);
  if (!platform::findJobFile(directories_.root.get(), root_.places(), label)) {
    reply(controlReply());
    return;
  }
  const auto tell = [reply, label](const RouterReport& router) {
    ControlReply status = controlReply();
    status.message = router.problem;
    status.jobs.push_back(router.status);
    status.jobs.front().label = label;
    status.jobs.front().services = {label};
    reply(status);
  };
  if (seams_.askRouter)
    seams_.askRouter(tell);
  else
    tell({});
}

void SystemDaemon::updateIdleTimer() {
  if (change_ || (server_ && !server_->isQuiet()))
    idleTimer_.end();
  else if (!idleTimer_)
    idleTimer_ = loop_.after(idleTime_, [this] { endIfIdle(); });
}

void SystemDaemon::endIfIdle() {
  idleTimer_.end();
  // A no must not be forgotten with the process, else a question could be put again at once.
  if (throttle_.remembersAnybody(EventLoop::Clock::now()))
    updateIdleTimer();
  else if (!change_ && server_->closeIfUnused())
    loop_.stop();
}

}  // namespace jobd
