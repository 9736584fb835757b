// SPDX-License-Identifier: Apache-2.0

#include "jobd/SystemLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "jobd/LogText.h"

namespace jobd {
namespace {

constexpr const char* kFileName = "system.log";
constexpr std::string_view kOwnName = "wlhid-jobd";
constexpr const char* kOldFileName = "system.log.0";

/// An upper bound for the length of the entry: an escaped byte takes four characters.
std::size_t largestEntryOf(std::string_view text) {
  constexpr std::size_t beginning = 64;
  const auto escapable = std::count_if(text.begin(), text.end(), [](char c) {
    return static_cast<signed char>(c) < 0x20 || c == 0x7F;  // beyond ASCII too
  });
  return beginning + text.size() + 3 * static_cast<std::size_t>(escapable);
}

}  // namespace

SystemLog::SystemLog(platform::FileDescriptor directory, std::uint64_t limit)
    : directory_(std::move(directory)), limit_(limit), host_(platform::logHostName()) {}

void SystemLog::write(std::string_view name, long process, std::string_view text) {
  if (mayWrite(name, largestEntryOf(text))) append(entry(name, process, text));
}

void SystemLog::note(const platform::LogLine& line) {
  write(kOwnName, ::getpid(), line);
}

std::string SystemLog::entry(std::string_view name, long process, std::string_view text) const {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  return logEntry(local, host_, name, process, text);
}

bool SystemLog::mayWrite(std::string_view name, std::size_t bytes) {
  const auto now = LogBudget::Clock::now();
  const auto budget = budgets_.try_emplace(std::string(name), now).first;
  if (budget->second.take(bytes, now)) return true;
  if (!std::exchange(isLeavingOut_, true) && leavingOut_) leavingOut_();
  return false;
}

void SystemLog::logLeftOut() {
  isLeavingOut_ = false;
  for (auto& [name, budget] : budgets_) {
    if (budget.leftOut() == 0) continue;
    append(entry(kOwnName, ::getpid(),
                 platform::LogLine::of<row::linesLeftOut>(budget.leftOut(), name)));
    budget.forgetLeftOut();
  }
}

/// A single write to an append-mode descriptor, so that entries of several writers do not mix.
void SystemLog::append(const std::string& entry) {
  if (!prepare()) return;
  [[maybe_unused]] const ssize_t written = ::write(file_.get(), entry.data(), entry.size());
}
/// Whether there is a log to write to. A log that was removed or has grown too long is started
/// anew.
/// Whether there is a log to write to. One that was removed or has grown too long is begun anew.
bool SystemLog::prepare() {
  struct stat status {};
  if (!file_ || ::fstat(file_.get(), &status) != 0 || status.st_nlink == 0) return reopen();
  if (static_cast<std::uint64_t>(status.st_size) < limit_) return true;
  ::renameat(directory_.get(), kFileName, directory_.get(), kOldFileName);
  return reopen();
}

bool SystemLog::reopen() {
  file_.reset(::openat(directory_.get(), kFileName,
                       O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  struct stat status {};
  if (file_ && (::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode))) file_.reset();
  return static_cast<bool>(file_);
}

}  // namespace jobd
