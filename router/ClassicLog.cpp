// SPDX-License-Identifier: Apache-2.0

#include "router/ClassicLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/foundation/LogEntryText.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace router {
namespace {

constexpr const char* kFile = "system.log";

}  // namespace

ClassicLog::ClassicLog(platform::FileDescriptor directory)
    : directory_(std::move(directory)), host_(platform::logHostName()) {}

void ClassicLog::write(const LogEntry& entry) {
  bool isWritten = prepare();
  if (isWritten && lost_ > 0) {
    isWritten = append({platform::LogLine::of<row::linesNotWritten>(lost_), {}, true, entry.at});
    if (isWritten) lost_ = 0;
  }
  if (!isWritten || !append(entry)) ++lost_;
}

/// A single write to an append-mode descriptor, so that entries of several writers do not mix.
bool ClassicLog::append(const LogEntry& entry) const {
  std::tm time{};
  ::localtime_r(&entry.at, &time);
  const std::string text =
      platform::logEntry(time, host_, WLHIDEventRouterLabel, ::getpid(), entry.line);
  return ::write(file_.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool ClassicLog::prepare() {
  if (file_ && isInPlace()) return true;
  file_.reset(::openat(directory_.get(), kFile,
                       O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (file_ && (::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode))) file_.reset();
  return static_cast<bool>(file_);
}

bool ClassicLog::isInPlace() const {
  struct stat own {};
  struct stat named {};
  return ::fstat(file_.get(), &own) == 0 &&
         ::fstatat(directory_.get(), kFile, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

}  // namespace router
