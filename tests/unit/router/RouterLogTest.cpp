// SPDX-License-Identifier: Apache-2.0

#include "router/RouterLog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "platform/services/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/jobd/FileOperations.h"

namespace {

using platform::LogLine;

// Free text cannot be logged.
static_assert(!std::is_invocable_v<router::RouterLog, std::string>);
static_assert(!std::is_invocable_v<router::RouterLog, const char*>);
static_assert(!std::is_invocable_v<decltype(router::logToStandardError), std::string>);
static_assert(!std::is_invocable_v<decltype(router::logToStandardError), const char*>);

constexpr platform::LogTemplate kText{"it says {text}"};
constexpr platform::LogTemplate kALine{"a line"};
constexpr platform::LogTemplate kAnother{"another"};

/// Redirects standard error to a file as long as it lives.
class StandardErrorFile {
 public:
  StandardErrorFile() {
    const platform::FileDescriptor file(
        ::open(path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    ::dup2(file.get(), STDERR_FILENO);
  }
  StandardErrorFile(const StandardErrorFile&) = delete;
  StandardErrorFile& operator=(const StandardErrorFile&) = delete;
  ~StandardErrorFile() { ::dup2(before_.get(), STDERR_FILENO); }
  [[nodiscard]] std::string text() const { return testsupport::readFile(path()); }

 private:
  [[nodiscard]] std::filesystem::path path() const { return directory_.path() / "log"; }
  const testsupport::TemporaryDirectory directory_;
  const platform::FileDescriptor before_{::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)};
};

TEST(RouterLog, WritesOneLineWhateverStandsInIt) {
  const StandardErrorFile file;
  router::logToStandardError(LogLine::of<kALine>());
  router::logToStandardError(LogLine::of<kText>("a\nb\x1b[2J"));
  router::logToStandardError(LogLine::of<kText>(""));
  EXPECT_EQ(file.text(), "a line\nit says a\\x0ab\\x1b[2J\nit says \n");
}

TEST(RouterLog, GoesOnWhereAWriteWasInterruptedOrWroteAPart) {
  const StandardErrorFile file;
  fileoperations::limitWrites({-EINTR, 3, -EINTR, 1});
  router::logToStandardError(LogLine::of<kALine>());
  EXPECT_EQ(file.text(), "a line\n");
}

TEST(RouterLog, GivesUpWhereNobodyReads) {
  const StandardErrorFile file;
  fileoperations::limitWrites({2, -EPIPE});
  router::logToStandardError(LogLine::of<kALine>());
  EXPECT_EQ(file.text(), "a ");
  router::logToStandardError(LogLine::of<kAnother>());
  EXPECT_EQ(file.text(), "a another\n");
}

}  // namespace
