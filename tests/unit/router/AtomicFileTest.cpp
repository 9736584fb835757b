#include "router/AtomicFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "platform/services/RootFiles.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using router::FileDraft;
using testing::ElementsAre;
using testing::IsEmpty;

class AtomicFileTest : public testing::Test {
 protected:
  static std::span<const std::uint8_t> bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
  }
  [[nodiscard]] std::vector<std::string> names() const {
    return platform::namesIn(directory_.get());
  }
  [[nodiscard]] std::string content(const std::string& name) const {
    return testsupport::readFile(path_ / name);
  }
  const testsupport::TemporaryDirectory temporary_;
  const fs::path& path_ = temporary_.path();
  const platform::FileDescriptor directory_{
      ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(AtomicFileTest, ADraftIsHiddenAndGoesUnlessItGetsAName) {
  {
    FileDraft draft(directory_.get(), "x");
    draft.append(bytes("one"));
    ASSERT_EQ(names().size(), 1U);
    EXPECT_EQ(names()[0].front(), '.');
  }
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(AtomicFileTest, ADraftReplacesOrTakesAFreeName) {
  {
    FileDraft first(directory_.get(), "x");
    first.append(bytes("one"));
    EXPECT_TRUE(first.take("x"));
    EXPECT_TRUE(first.take("y"));
    FileDraft second(directory_.get(), "x");
    second.append(bytes("two "));
    second.append(bytes("parts"));
    EXPECT_FALSE(second.take("x"));
    EXPECT_EQ(content("x"), "one");
    second.replace("x");
  }
  EXPECT_THAT(names(), ElementsAre("x", "y"));
  EXPECT_EQ(content("x"), "two parts");
  EXPECT_EQ(content("y"), "one");
}

TEST_F(AtomicFileTest, ALinkInTheNamesPlaceIsNotFollowed) {
  std::ofstream(path_ / "other") << "old";
  fs::create_symlink("other", path_ / "x");
  {
    FileDraft draft(directory_.get(), "x");
    draft.append(bytes("new"));
    EXPECT_FALSE(draft.take("x"));
    draft.replace("x");
  }
  EXPECT_EQ(content("other"), "old");
  EXPECT_FALSE(fs::is_symlink(path_ / "x"));
}

TEST_F(AtomicFileTest, ADraftHasTheModeThatWasAskedFor) {
  FileDraft draft(directory_.get(), "x", 0600);
  struct stat status {};
  ASSERT_EQ(::fstat(draft.descriptor(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(AtomicFileTest, ADraftThatCannotBeWrittenSaysWhyAndGoes) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{4, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  try {
    FileDraft draft(directory_.get(), "x");
    draft.append(bytes("too long"));
    ADD_FAILURE() << "it was written";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::file_too_large);
    EXPECT_STREQ(error.what(), "x: cannot be written: File too large");
  }
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_THAT(names(), IsEmpty());
}

}  // namespace
