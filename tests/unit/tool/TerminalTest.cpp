#include "tool/Terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tool {
namespace {

TEST(Terminal, GetsNothingThatItWouldObey) {
  EXPECT_EQ(safeForTerminal("a\tb\nc é €"), "a\tb\nc é €");
  EXPECT_EQ(safeForTerminal("\x1b[31m\r\x7f\b"), "?[31m???");
  EXPECT_EQ(safeForTerminal("\xc2\x9b"
                            "31m \xc2\xa0"),
            "?31m \xc2\xa0");
  EXPECT_EQ(safeForTerminal("\xc2"), "\xc2");
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
