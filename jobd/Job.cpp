// SPDX-License-Identifier: Apache-2.0

#include "jobd/Job.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>

#include "platform/services/InstalledJob.h"
#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"

namespace jobd {
namespace {

using platform::LogLine;

constexpr int kBacklog = 128;
constexpr unsigned kEndpointMode = 0600;  // only the root's owner is served

std::string endpointName(const std::string& service) {
  return service + ".sock";
}

CrashThrottle::Duration since(EventLoop::Clock::time_point start) {
  return std::chrono::duration_cast<CrashThrottle::Duration>(EventLoop::Clock::now() - start);
}

}  // namespace

void Job::listen() {
  refuseAnotherProgram();
  openEndpoints(description_.services);
  awaitConnection();
}

/// The executable that an application sees for the job must be the one that runs.
void Job::refuseAnotherProgram() const {
  const std::string problem = platform::whyNotTheHelper(
      description_.arguments.front(), context_.directories.tools.get(), description_.label,
      platform::placesOfAUser().layers.front().helpers);
  if (!problem.empty())
    throw platform::ServiceError(platform::ServiceErrorCode::InvalidImage, problem);
}

bool Job::offers(const std::string& service) const {
  return std::any_of(endpoints_.begin(), endpoints_.end(),
                     [&](const auto& each) { return each.service == service; });
}

/// Opens all of them or, with an exception, none.
std::vector<ListeningSocket> Job::openMissing(const std::vector<std::string>& services) const {
  std::vector<ListeningSocket> opened;
  for (const auto& service : services) {
    if (offers(service)) continue;
    auto socket =
        platform::listenUnixSocketAt(context_.directories.run.get(), endpointName(service),
                                     SOCK_STREAM, kBacklog, kEndpointMode);
    if (socket) {
      opened.push_back({service, std::move(socket)});
      continue;
    }
    const int error = errno;
    for (const auto& each : opened) closeEndpoint(each);
    throw platform::fileSystemError("cannot listen on " + endpointName(service), error);
  }
  return opened;
}

/// Opens the missing endpoints and closes those that are no longer offered.
void Job::openEndpoints(const std::vector<std::string>& services) {
  auto open = openMissing(services);
  std::move(endpoints_.begin(), endpoints_.end(), std::back_inserter(open));
  endpoints_.clear();
  for (const auto& service : services) {
    const auto found = std::find_if(open.begin(), open.end(),
                                    [&](const auto& each) { return each.service == service; });
    endpoints_.push_back({service, std::move(found->socket)});
  }
  for (const auto& left : open) {
    if (left.socket) closeEndpoint(left);
  }
}

void Job::closeEndpoint(const ListeningSocket& endpoint) const {
  ::unlinkat(context_.directories.run.get(), endpointName(endpoint.service).c_str(), 0);
}

void Job::awaitConnection() {
  heldBack_.end();
  watches_.clear();
  for (const auto& endpoint : endpoints_) {
    watches_.push_back(context_.loop.watch(endpoint.socket.get(), EPOLLIN, [this] { start(); }));
  }
}

void Job::start() {
  watches_.clear();  // including the one calling; the loop keeps its handler until it returns
  startedAt_ = EventLoop::Clock::now();
  ++starts_;
  try {
    launch();
  } catch (const std::exception& error) {
    context_.log.note(LogLine::of<row::cannotStart>(description_.label, error.what()));
    lastEnd_ = LogLine::of<row::notStarted>(error.what()).text();
    holdBack(CrashThrottle::Duration::zero());
  }
}

void Job::launch() {
  refuseAnotherProgram();
  ProcessPlan plan;
  plan.label = description_.label;
  plan.arguments = description_.arguments;
  plan.tools = context_.directories.tools.get();
  plan.sockets = &endpoints_;
  plan.root = context_.directories.root.get();
  process_ = std::make_unique<JobProcess>(context_.loop, context_.log, plan,
                                          [this](const JobEnd& end) { processEnded(end); });
}

void Job::processEnded(const JobEnd& end) {
  lastEnd_ = end.text();
  const pid_t process = process_->identifier();
  context_.log.note(end.isSignal
                        ? LogLine::of<row::jobKilled>(description_.label, process, end.number)
                        : LogLine::of<row::jobExited>(description_.label, process, end.number));
  process_.reset();
  graceTimer_.end();
  if (isStopping()) {
    finishStopping();
  } else {
    holdBack(since(startedAt_));
  }
}

void Job::holdBack(CrashThrottle::Duration ran) {
  const auto delay = throttle_.delayAfterRunOf(ran);
  if (delay == CrashThrottle::Duration::zero()) {
    awaitConnection();
    return;
  }
  heldBackUntil_ = EventLoop::Clock::now() + delay;
  heldBack_ = context_.loop.after(delay, [this] { awaitConnection(); });
}

void Job::replaceWith(platform::JobDescription description, Gone done) {
  openEndpoints(description.services);
  description_ = std::move(description);
  throttle_ = {};
  stop(std::move(done));
}

void Job::retire(Gone gone) {
  isRetired_ = true;
  for (const auto& endpoint : endpoints_) closeEndpoint(endpoint);
  watches_.clear();
  endpoints_.clear();
  stop(std::move(gone));
}

void Job::stop(Gone gone) {
  watches_.clear();
  heldBack_.end();
  const bool isAsked = isStopping();
  whenGone_.push_back(std::move(gone));
  if (!process_) {
    finishStopping();
  } else if (!isAsked) {
    process_->signal(SIGTERM);
    graceTimer_ = context_.loop.after(kGracePeriod, [this] { kill(); });
  }
}

void Job::kill() {
  if (process_) process_->signal(SIGKILL);
}

void Job::finishStopping() {
  const auto callbacks = std::exchange(whenGone_, {});
  if (!isRetired_) awaitConnection();
  for (const auto& gone : callbacks) gone();  // the last one may destroy this job
}

platform::JobStatus Job::status() const {
  platform::JobStatus status;
  status.label = description_.label;
  status.services = description_.services;
  status.processIdentifier = process_ ? process_->identifier() : 0;
  status.starts = starts_;
  if (heldBack_) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(heldBackUntil_ -
                                                                            EventLoop::Clock::now())
                          .count();
    status.heldBackMilliseconds = std::max<std::int64_t>(left, 1);
  }
  status.lastEnd = lastEnd_;
  return status;
}

}  // namespace jobd
