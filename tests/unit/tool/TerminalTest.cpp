// SPDX-License-Identifier: Apache-2.0

#include "tool/terminal/Terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

#include "tests/support/ScopedVariable.h"
#include "tests/unit/tool/PseudoTerminal.h"

namespace tool {
namespace {

TEST(Terminal, AFileHasNoColumns) {
  const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(columnsOfTerminal(nothing), 0U);
  ::close(nothing);
}

TEST(Terminal, AFileGetsBytesAsTheyAre) {
  const std::string bytes("\x1b[31m\xff\0end", 10);
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const int before = ::dup(STDOUT_FILENO);
  ::dup2(ends[1], STDOUT_FILENO);
  printBytes(bytes);
  ::dup2(before, STDOUT_FILENO);
  std::array<char, 64> buffer{};
  const ssize_t count = ::read(ends[0], buffer.data(), buffer.size());
  EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(count)), bytes);
  for (const int descriptor : {before, ends[0], ends[1]}) ::close(descriptor);
}

TEST(Terminal, AFileShowsNoColours) {
  const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  EXPECT_FALSE(showsColours(nothing));
  ::close(nothing);
}

TEST(Terminal, ProgressIsSilentElsewhere) {
  testing::internal::CaptureStderr();
  {
    Progress progress(2);
    progress.step("one");
    progress.step("two");
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// ---- On a terminal

class OnATerminal : public testing::Test {
 protected:
  const testsupport::ScopedVariable kind_{"TERM", "xterm"};
  const testsupport::ScopedVariable colours_{"NO_COLOR", nullptr};
  const PseudoTerminal terminal_;
};

TEST_F(OnATerminal, ColoursAreShownUnlessTheyAreUnwanted) {
  EXPECT_TRUE(showsColours(terminal_.descriptor()));
  {
    const testsupport::ScopedVariable unwanted("NO_COLOR", "1");
    EXPECT_FALSE(showsColours(terminal_.descriptor()));
  }
  {
    const testsupport::ScopedVariable empty("NO_COLOR", "");
    EXPECT_TRUE(showsColours(terminal_.descriptor()));
  }
  for (const char* none : {static_cast<const char*>(nullptr), "", "dumb"}) {
    const testsupport::ScopedVariable kind("TERM", none);
    EXPECT_FALSE(showsColours(terminal_.descriptor()));
  }
}

TEST_F(OnATerminal, ColumnsAreThoseItHasNow) {
  terminal_.setColumns(33);
  EXPECT_EQ(columnsOfTerminal(terminal_.descriptor()), 33U);
  terminal_.setColumns(0);
  EXPECT_EQ(columnsOfTerminal(terminal_.descriptor()), 80U) << "its size is unknown";
}

TEST_F(OnATerminal, BytesBecomePrintableAndEndTheirLine) {
  const Redirected output(STDOUT_FILENO, terminal_.descriptor());
  printBytes("a\x1b\nb");
  printBytes("c\n");
  printBytes("");
  EXPECT_EQ(terminal_.shown(), "a\\x1b\nb\nc\n");
}

TEST_F(OnATerminal, ProgressIsOneLineThatGoes) {
  const Redirected output(STDERR_FILENO, terminal_.descriptor());
  terminal_.setColumns(12);
  {
    Progress progress(2);
    EXPECT_EQ(terminal_.shown(), "");
    progress.step("one\x1b");
    EXPECT_EQ(terminal_.shown(), "\r\x1b[K[1/2] one\\…");
    progress.step("two");
    progress.step("more");
    EXPECT_EQ(terminal_.shown(), "\r\x1b[K[2/2] two\r\x1b[K[2/2] more");
  }
  EXPECT_EQ(terminal_.shown(), "\r\x1b[K");
  { const Progress none(2); }
  EXPECT_EQ(terminal_.shown(), "");
}

}  // namespace
}  // namespace tool
