// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/StartWatch.h"

#include <algorithm>

#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/services/JobDaemon.h"
#include "tool/findings/Inventory.h"

namespace tool {

std::optional<std::string> StartWatch::ask() {
  const JobDaemonState daemon = askJobDaemon(root_);
  if (!daemon.problem.empty()) return daemon.problem;
  if (!daemon.reply) return std::nullopt;
  return take(*daemon.reply);
}

std::optional<std::string> StartWatch::take(const platform::ControlReply& status) {
  if (!status.message.empty()) return status.message;
  const auto job =
      std::ranges::find(status.jobs, WLHIDEventRouterLabel, &platform::JobStatus::label);
  return job == status.jobs.end() ? std::nullopt : take(*job);
}

std::optional<std::string> StartWatch::take(const platform::JobStatus& job) {
  if (!job.lastEnd.empty()) lastEnd_ = job.lastEnd;
  const auto ends = static_cast<std::uint64_t>(job.starts - (job.processIdentifier == 0 ? 0 : 1));
  if (!endsBefore_) endsBefore_ = ends;
  const std::uint64_t since = ends - std::min(*endsBefore_, ends);
  const auto heldBack = static_cast<std::uint64_t>(job.heldBackMilliseconds);
  if (since < kEnds && heldBack < kLongHoldBack) return std::nullopt;
  return "the router keeps failing at startup: it " +
         (lastEnd_.empty() ? "ends again and again" : lastEnd_);
}

}  // namespace tool
