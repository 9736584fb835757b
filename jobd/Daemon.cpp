// SPDX-License-Identifier: Apache-2.0

#include "jobd/Daemon.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <sstream>

#include "jobd/CallerProgram.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"

extern "C" {
#include <sys/pidfd.h>  // lacks the declaration of C linkage in some versions of the C library
}

namespace jobd {
namespace {

using platform::ControlReply;
using platform::ControlRequest;
using platform::LogLine;
using platform::ServiceError;
using platform::ServiceErrorCode;

constexpr std::chrono::milliseconds kLeftOutInterval{1000};  // one entry a second is enough

void drain(int descriptor) {
  std::array<char, 4096> buffer{};
  while (::read(descriptor, buffer.data(), buffer.size()) > 0) {
  }
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::vector<std::string> separated(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

/// The process that listens on a socket file; none if its creator is gone. A job may keep a socket
/// a moment longer than the daemon that created it, which does not count: the kernel is ending it.
std::optional<std::string> livingListener(int directory, const std::string& name) {
  const auto socket = platform::connectUnixSocketAt(directory, name, SOCK_STREAM | SOCK_NONBLOCK);
  if (!socket)
    return errno == EAGAIN ? std::optional<std::string>("another process") : std::nullopt;
  const auto listener = platform::peerCredentials(socket.get());
  if (!listener) return std::nullopt;
  const platform::FileDescriptor process(::pidfd_open(listener->process, 0));
  pollfd ended{process.get(), POLLIN, 0};
  const bool isAlive = process && ::poll(&ended, 1, 0) == 0;
  if (!isAlive) return std::nullopt;
  return "process " + std::to_string(listener->process);
}

}  // namespace

Daemon::Daemon(const platform::SystemRoot& root, RootDirectories directories,
               std::chrono::milliseconds idleTime)
    : root_(root),
      directories_(std::move(directories)),
      log_(platform::openDirectoryBelow(directories_.log.get(), ".", false)),
      installer_(directories_, root),
      context_{loop_, log_, directories_},
      idleTime_(idleTime) {
  watchSignals();
  log_.onLeavingOut(
      [this] { leftOutTimer_ = loop_.after(kLeftOutInterval, [this] { log_.logLeftOut(); }); });
  installer_.removeStagingFiles();
  loadJobs();
  server_ = std::make_unique<ControlServer>(
      loop_, directories_.run.get(),
      [this](const Question& question, const Decided& decided) { authorize(question, decided); },
      [this](const Caller&, const ControlRequest& request, platform::FileDescriptor descriptor,
             const Reply& reply) { handle(request, std::move(descriptor), reply); },
      [this] { updateIdleTimer(); });
  watchRunDirectory();
  updateIdleTimer();
}

void Daemon::watchSignals() {
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigaddset(&mask, SIGINT);
  sigaddset(&mask, SIGHUP);
  ::pthread_sigmask(SIG_BLOCK, &mask, nullptr);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, nullptr);
  signals_.reset(::signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!signals_) throw platform::fileSystemError("cannot receive signals", errno);
  signalWatch_ = loop_.watch(signals_.get(), EPOLLIN, [this] {
    signalfd_siginfo info{};
    while (::read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
      if (info.ssi_signo != SIGHUP) shutDown();
    }
  });
}

/// A daemon that can no longer be reached, because its root was deleted or its endpoint replaced,
/// must not keep running.
void Daemon::watchRunDirectory() {
  changes_.reset(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  const std::string path = "/proc/self/fd/" + std::to_string(directories_.run.get());
  if (!changes_ ||
      ::inotify_add_watch(changes_.get(), path.c_str(),
                          IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF) < 0) {
    log_.note(LogLine::of<row::cannotWatch>(platform::errorText(errno)));
    return;
  }
  changeWatch_ = loop_.watch(changes_.get(), EPOLLIN, [this] {
    drain(changes_.get());
    if (!isShuttingDown_ && !server_->isInPlace()) shutDown();
  });
}

void Daemon::loadJobs() {
  for (const auto& label : labelsOfJobFiles(directories_.jobs.get())) {
    try {
      loadJob(label);
    } catch (const std::exception& error) {
      log_.note(LogLine::of<row::skipsJob>(label, error.what()));
    }
  }
}

void Daemon::loadJob(const std::string& label) {
  const auto bytes = platform::readFileIn(directories_.jobs.get(), label + ".plist",
                                          platform::kMaximumJobFileBytes);
  if (!bytes) return;
  std::string reason;
  auto description = platform::parseJobFile(*bytes, label, &reason);
  if (!description)
    throw ServiceError(ServiceErrorCode::FileSystem, "its job file cannot be used: " + reason);
  refuseTakenNames(*description);
  refuseLiveEndpoints(*description);
  auto job = std::make_unique<Job>(context_, std::move(*description));
  job->listen();
  jobs_[label] = std::move(job);
}

/// On a user's root only its owner and the superuser may connect, so the caller is the person to
/// ask. That this person was asked is the application's claim; the log records which program made
/// it.
void Daemon::authorize(const Question& question, const Decided& decided) {
  const auto& [caller, label, right, prompt, change, presence] = question;
  const bool mayChange = caller.user == 0 || caller.user == ::geteuid();
  const std::string program = programOf(caller.process);
  log_.note(mayChange
                ? LogLine::of<row::permissionGranted>(label, caller.process, program, caller.user)
                : LogLine::of<row::permissionDenied>(label, caller.process, program, caller.user));
  decided({mayChange ? Decision::Kind::Yes : Decision::Kind::No, {}});
}

void Daemon::handle(const ControlRequest& request, platform::FileDescriptor descriptor,
                    const Reply& reply) try {
  idleTimer_.end();
  using Operation = ControlRequest::Operation;
  if (request.operation == Operation::Grant || request.operation == Operation::Revoke)
    throw ServiceError(ServiceErrorCode::NotSupported,
                       "every device of a user's own root may be routed anyway");
  if (request.operation == Operation::Status)
    replyWithStatus(reply);
  else
    changeJob(request, std::move(descriptor), reply);
} catch (const ServiceError& error) {
  reply(controlReply(error.code(), error.what()));
} catch (const std::exception& error) {
  reply(controlReply(ServiceErrorCode::FileSystem, error.what()));
}

void Daemon::changeJob(const ControlRequest& request, platform::FileDescriptor descriptor,
                       const Reply& reply) {
  if (isShuttingDown_ || departing_.contains(request.label))
    throw ServiceError(ServiceErrorCode::Busy, request.label + " is being removed; try again");
  const auto copy = copies_.find(request.label);
  if (copy != copies_.end()) {
    if (copy->second.task->isGivenUp())
      throw ServiceError(ServiceErrorCode::Busy,
                         "an installation of " + request.label + " hangs; try again later");
    copy->second.waiting.push_back({request, std::move(descriptor), reply});
  } else if (request.operation == ControlRequest::Operation::Bless) {
    bless(request.label, std::move(descriptor), reply);
  } else {
    remove(request.label, request.wait, reply);
  }
}

void Daemon::bless(const std::string& label, platform::FileDescriptor helper, const Reply& reply) {
  if (!helper)
    throw ServiceError(ServiceErrorCode::Protocol, "no helper was sent with the request");
  if (copies_.size() >= kMaximumCopies)
    throw ServiceError(ServiceErrorCode::Busy, "too many helpers are being installed; try again");
  const int tools = directories_.tools.get();
  ChildTask::Plan plan;
  plan.name = "the copy of " + label;
  plan.descriptors = {tools, helper.get()};
  plan.work = [tools, source = helper.get(), label] {
    return joined(stageHelper(tools, source, label).services);
  };
  copies_[label].task = std::make_unique<ChildTask>(
      loop_, plan, [this, label, reply](const auto& copied) { finishBless(label, copied, reply); },
      [this, label] { copyEnded(label); });
}

void Daemon::finishBless(const std::string& label, const ChildTask::Outcome& copied,
                         const Reply& reply) try {
  if (copied.code != ServiceErrorCode::None) throw ServiceError(copied.code, copied.text);
  if (isShuttingDown_)
    throw ServiceError(ServiceErrorCode::Busy, "the job daemon is shutting down; try again");
  auto description = installer_.putInPlace(label, separated(copied.text), [this](const auto& job) {
    refuseTakenNames(job);
    refuseLiveEndpoints(job);
  });
  log_.note(LogLine::of<row::installed>(label));
  adopt(std::move(description), reply);
} catch (const ServiceError& error) {
  reply(controlReply(error.code(), error.what()));
} catch (const std::exception& error) {
  reply(controlReply(ServiceErrorCode::FileSystem, error.what()));
}

void Daemon::copyEnded(const std::string& label) {
  auto copy = copies_.extract(label);
  // Called from within the task, so it is destroyed in the next iteration.
  endedCopies_.push_back(std::move(copy.mapped().task));
  copySweep_ = loop_.after(std::chrono::milliseconds::zero(), [this] { endedCopies_.clear(); });
  discardStagedHelper(directories_.tools.get(), label);  // exists if the task was given up
  for (auto& each : copy.mapped().waiting)
    handle(each.request, std::move(each.descriptor), each.reply);
}

/// Takes over a job whose files have just been put in place.
void Daemon::adopt(platform::JobDescription description, const Reply& reply) {
  const auto found = jobs_.find(description.label);
  if (found != jobs_.end()) {
    found->second->replaceWith(std::move(description), [reply] { reply(controlReply()); });
    return;
  }
  auto job = std::make_unique<Job>(context_, description);
  job->listen();
  jobs_[description.label] = std::move(job);
  reply(controlReply());
}

void Daemon::remove(const std::string& label, bool wait, const Reply& reply) {
  const auto found = jobs_.find(label);
  const bool hadFiles = installer_.remove(label);
  if (!hadFiles && found == jobs_.end())
    throw ServiceError(ServiceErrorCode::NoSuchJob, "there is no job " + label);
  log_.note(LogLine::of<row::removed>(label));
  if (found == jobs_.end()) {
    reply(controlReply());
    return;
  }
  if (!wait) reply(controlReply());
  retire(found, [wait, reply] {
    if (wait) reply(controlReply());
  });
}

void Daemon::retire(Jobs::iterator job, const std::function<void()>& gone) {
  const std::string label = job->first;
  departing_[label] = std::move(job->second);
  jobs_.erase(job);
  departing_.at(label)->retire([this, label, gone] {
    // Called from within the job, so it is destroyed in the next iteration.
    departed_.push_back(std::move(departing_.at(label)));
    departing_.erase(label);
    sweep_ = loop_.after(std::chrono::milliseconds::zero(), [this] { departed_.clear(); });
    gone();
    updateIdleTimer();
    if (isShuttingDown_) stopWhenEmpty();
  });
}

void Daemon::replyWithStatus(const Reply& reply) const {
  ControlReply status = controlReply();
  for (const auto& [label, job] : jobs_) status.jobs.push_back(job->status());
  reply(status);
}

/// A name, label or service, belongs to the job that holds it; a service that has the name of a job
/// belongs to that job.
void Daemon::refuseTakenNames(const platform::JobDescription& description) const {
  const auto refuse = [](const std::string& name, const std::string& owner) {
    throw ServiceError(ServiceErrorCode::InvalidImage,
                       "the service " + name + " belongs to the job " + owner);
  };
  std::vector<std::string> wanted = description.services;
  for (const auto& service : wanted) {
    if (service != description.label && isLabelOfJob(service)) refuse(service, service);
  }
  wanted.push_back(description.label);
  for (const auto& [label, job] : jobs_) {
    if (label == description.label) continue;
    for (const auto& service : job->description().services) {
      if (std::find(wanted.begin(), wanted.end(), service) != wanted.end()) refuse(service, label);
    }
  }
}

bool Daemon::isLabelOfJob(const std::string& name) const {
  if (jobs_.contains(name)) return true;
  const auto labels = labelsOfJobFiles(directories_.jobs.get());
  return std::find(labels.begin(), labels.end(), name) != labels.end();
}

/// Nor are other programs' sockets replaced: the job's own are open already, and those left by a
/// killed daemon have no live owner.
void Daemon::refuseLiveEndpoints(const platform::JobDescription& description) const {
  const auto own = jobs_.find(description.label);
  for (const auto& service : description.services) {
    if (own != jobs_.end() && own->second->offers(service)) continue;
    const auto listener = livingListener(directories_.run.get(), service + ".sock");
    if (!listener) continue;
    throw ServiceError(ServiceErrorCode::Busy,
                       *listener + " listens on the service " + service + "; end it first");
  }
}

void Daemon::updateIdleTimer() {
  const bool isIdle = jobs_.empty() && departing_.empty() && (!server_ || server_->isQuiet());
  if (!isIdle || isShuttingDown_) {
    idleTimer_.end();
  } else if (!idleTimer_) {
    idleTimer_ = loop_.after(idleTime_, [this] { endIfIdle(); });
  }
}

void Daemon::endIfIdle() {
  idleTimer_.end();
  isShuttingDown_ = server_->closeIfUnused();
  if (isShuttingDown_) loop_.stop();
}

void Daemon::shutDown() {
  if (isShuttingDown_) {  // the second request: do not wait for the jobs
    for (const auto& [label, job] : departing_) job->kill();
    return;
  }
  isShuttingDown_ = true;
  server_->removeEndpoint();
  while (!jobs_.empty()) retire(jobs_.begin(), [] {});
  stopWhenEmpty();
}

void Daemon::stopWhenEmpty() {
  if (!jobs_.empty() || !departing_.empty()) return;
  log_.logLeftOut();
  loop_.stop();
}

}  // namespace jobd
