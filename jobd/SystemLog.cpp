#include "jobd/SystemLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <ctime>

#include "jobd/LogText.h"
#include "platform/foundation/PrintableText.h"

namespace jobd {
namespace {

constexpr const char* fileName = "system.log";
constexpr const char* oldFileName = "system.log.0";

std::string hostName() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return "localhost";
  std::string host = platform::printableLine(name.data());
  for (char& c : host) {
    if (c == ' ') c = '_';  // the host is one word of an entry
  }
  return host;
}

}  // namespace

SystemLog::SystemLog(platform::FileDescriptor directory, std::uint64_t limit)
    : directory_(std::move(directory)), limit_(limit), host_(hostName()) {}

void SystemLog::write(std::string_view name, long process, std::string_view text) {
  if (!prepare()) return;
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  const std::string entry = logEntry(local, host_, name, process, text);
  // One write on an appending descriptor: entries of several writers do not mix.
  [[maybe_unused]] const ssize_t written = ::write(file_.get(), entry.data(), entry.size());
}

void SystemLog::note(std::string_view text) {
  write("wlhid-jobd", ::getpid(), text);
}

/// Whether there is a log to write to. One that was removed or has grown too long is begun anew.
bool SystemLog::prepare() {
  struct stat status {};
  if (!file_ || ::fstat(file_.get(), &status) != 0 || status.st_nlink == 0) return reopen();
  if (static_cast<std::uint64_t>(status.st_size) < limit_) return true;
  ::renameat(directory_.get(), fileName, directory_.get(), oldFileName);
  return reopen();
}

bool SystemLog::reopen() {
  file_.reset(::openat(directory_.get(), fileName,
                       O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  struct stat status {};
  if (file_ && (::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode))) file_.reset();
  return static_cast<bool>(file_);
}

}  // namespace jobd
