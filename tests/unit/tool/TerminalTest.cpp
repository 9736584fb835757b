#include "tool/Terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

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

}  // namespace
}  // namespace tool
