// SPDX-License-Identifier: Apache-2.0

// Reading a file named by a person, and writing whole lines to a descriptor.
#include "tool/files/Files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/support/TemporaryDirectory.h"
#include "tool/command/Command.h"
#include "tool/terminal/Output.h"

namespace tool {
namespace {

class FilesTest : public testing::Test {
 protected:
  [[nodiscard]] std::string file(const std::string& text) const {
    testsupport::writeFile(path_, text);
    return path_;
  }
  static std::string read(const std::string& path, std::size_t limit = kMaxFileBytes) {
    try {
      const auto data = readWholeFile(path, limit);
      return "read: " + std::string(reinterpret_cast<const char*>(data->bytes()), data->length());
    } catch (const Failure& failure) {
      return failure.what();
    }
  }

  const testsupport::TemporaryDirectory directory_;
  const std::string path_ = directory_.path() / "file";
};

TEST_F(FilesTest, AreReadWhole) {
  EXPECT_EQ(read(file("some\0text")), "read: some");
  EXPECT_EQ(read(file("")), "read: ");
}

TEST_F(FilesTest, AreBoundedInSize) {
  constexpr std::size_t limit = std::size_t{2} << 20;
  EXPECT_EQ(read(file(std::string(limit, 'x')), limit), "read: " + std::string(limit, 'x'));
  EXPECT_EQ(read(file(std::string(limit + 1, 'x')), limit), path_ + ": larger than 2 MiB");
  EXPECT_EQ(kMaxFileBytes, 268'435'456U);
  std::filesystem::resize_file(path_, kMaxFileBytes + 1);
  EXPECT_EQ(read(path_), path_ + ": larger than 256 MiB");
}

TEST_F(FilesTest, AreRegularFiles) {
  const std::string gone = directory_.path() / "gone";
  EXPECT_EQ(read(gone), gone + ": No such file or directory");
  EXPECT_EQ(read(directory_.path()), directory_.path().string() + ": Is a directory");
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(read(path_), path_ + ": not a regular file") << "must not wait for a writer";
}

TEST_F(FilesTest, LeaveNoDescriptorOpen) {
  const int before = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::close(before);
  static_cast<void>(read(file("text")));
  static_cast<void>(read(file(std::string(9, 'x')), 1));
  const int after = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::close(after);
  EXPECT_EQ(after, before);
}

// ---- Output

class OutputTest : public testing::Test {
 protected:
  OutputTest() {
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(::pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0);
  }
  ~OutputTest() override {
    for (const int end : ends_) ::close(end);
  }
  std::array<int, 2> ends_{};
};

TEST_F(OutputTest, WaitsForASlowReader) {
  const std::string text(1 << 20, 'x');
  std::size_t seen = 0;
  std::thread reader([&] {
    std::array<char, 4096> buffer{};
    while (seen < text.size()) {
      const ssize_t count = ::read(ends_[0], buffer.data(), buffer.size());
      if (count > 0) seen += static_cast<std::size_t>(count);
    }
  });
  Output output(ends_[1]);
  EXPECT_TRUE(output.write(text));
  reader.join();
  EXPECT_EQ(seen, text.size());
  EXPECT_EQ(output.failure(), 0);
}

TEST_F(OutputTest, KeepsItsFirstFailureAndIsOverThen) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  Output output(full);
  EXPECT_TRUE(output.write(""));
  EXPECT_FALSE(output.write("x"));
  EXPECT_EQ(output.failure(), ENOSPC);
  ASSERT_EQ(::dup2(ends_[1], full), full);  // there is room now
  EXPECT_FALSE(output.write("y"));
  EXPECT_FALSE(output.write(""));
  std::array<char, 8> buffer{};
  EXPECT_EQ(::read(ends_[0], buffer.data(), buffer.size()), -1);
  ::close(full);
}

TEST_F(OutputTest, PrintFailsUnlessTheReaderHasGone) {
  const int before = ::dup(STDOUT_FILENO);
  const auto printTo = [&](int descriptor) -> std::string {
    ::dup2(descriptor, STDOUT_FILENO);
    std::string failed = "done";
    try {
      print("text");
    } catch (const Failure& failure) {
      failed = failure.what();
    }
    ::dup2(before, STDOUT_FILENO);
    return failed;
  };
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(printTo(full), "cannot write to standard output: No space left on device");
  EXPECT_EQ(printTo(ends_[1]), "done");
  ::close(ends_[0]);
  ends_[0] = -1;
  EXPECT_EQ(printTo(ends_[1]), "done");
  ::close(full);
  ::close(before);
}

TEST(Complain, IsOneLineOfTheCommands) {
  testing::internal::CaptureStderr();
  complain("two\nlines");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "wlhid: two\\x0alines\n");
}

}  // namespace
}  // namespace tool
