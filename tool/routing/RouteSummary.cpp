// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/RouteSummary.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <thread>

#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/findings/Inventory.h"

namespace tool {

namespace {

constexpr std::chrono::milliseconds kTimeout{2000};
constexpr std::chrono::milliseconds kScreenTimeout{250};
constexpr std::chrono::milliseconds kFirstPause{10};

std::string decimal(const char* format, double number) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, number);
  return text.data();
}

bool hasSessionOfOurs(const router::RouterStatus& status) {
  return std::ranges::count(status.sessions, ::getpid(), &router::SessionStatus::pid) > 0;
}

bool hasSessionOfOthers(const router::RouterStatus& status) {
  return std::ranges::any_of(status.sessions, [](const router::SessionStatus& session) {
    return session.pid != ::getpid();
  });
}

}  // namespace

std::string routeHeader(const std::string& name, std::uint64_t registryEntryID) {
  const std::string id = hexadecimal(registryEntryID);
  return (name.empty() ? "Device " + id : oneLine(name) + " (" + id + ")") +
         "; Ctrl-C ends it. Released keys and buttons are left out.\n"
         "  SECONDS  WHAT     ID  BYTES, OR VALUES BY NAME\n";
}

LossCount::LossCount(platform::SystemRoot root) : root_(std::move(root)) {
  const auto status = runningRouter(root_, kTimeout);
  isUnknown_ = !status && root_.isSystem();  // where asking starts it
  if (!status) return;
  router_ = status->pid;
  before_ = status->lost;
}

bool LossCount::isStillToTell(const std::optional<router::RouterStatus>& status) const {
  return status ? hasSessionOfOurs(*status) : router_ == -1;
}

std::optional<Losses> LossCount::take() const {
  if (isUnknown_) return std::nullopt;
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  auto status = runningRouter(root_, kTimeout);
  // No event tells that the router has updated its status, and it answers only so many questions.
  for (auto pause = kFirstPause; isStillToTell(status); pause *= 2) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return std::nullopt;
    std::this_thread::sleep_until(std::min(now + pause, deadline));
    status = runningRouter(root_, kTimeout);
  }
  if (!status || (router_ != -1 && status->pid != router_)) return std::nullopt;
  return Losses{status->lost - std::min(before_, status->lost), !status->sessions.empty()};
}

LossWatch::LossWatch(platform::SystemRoot root) : root_(std::move(root)) {
  static_cast<void>(losses());
}

std::optional<Losses> LossWatch::losses() {
  const auto status = runningRouter(root_, kScreenTimeout);
  if (!status) return std::nullopt;
  if (status->pid != router_ || status->lost < before_) {
    router_ = status->pid;
    before_ = status->lost;
  }
  hasOthers_ = hasOthers_ || hasSessionOfOthers(*status);
  return Losses{status->lost - before_, hasOthers_};
}

std::string lossText(const Losses& losses) {
  return std::to_string(losses.reports) + " lost" +
         (losses.ofOthersToo && losses.reports != 0 ? ", by all sessions together" : "");
}

std::string routeSummary(std::uint64_t reports, std::chrono::microseconds time,
                         const std::optional<Losses>& losses) {
  const double seconds = static_cast<double>(time.count()) / 1e6;
  std::string text = std::to_string(reports) + (reports == 1 ? " report" : " reports") + " in " +
                     decimal("%.2f s", seconds);
  if (reports > 1 && seconds > 0)
    text += decimal(", %.1f per second", static_cast<double>(reports) / seconds);
  if (losses) text += "; " + (losses->reports == 0 ? "none lost" : lossText(*losses));
  return text + "\n";
}

}  // namespace tool
