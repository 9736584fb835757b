// SPDX-License-Identifier: Apache-2.0

#include "tool/files/NewFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/TemporaryDirectory.h"
#include "tool/command/Command.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using testsupport::readFile;
using testsupport::writeFile;

class NewFileTest : public testing::Test {
 protected:
  static void write(NewFile& file, std::string_view text) {
    file.write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }
  [[nodiscard]] std::size_t files() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator()));
  }
  static std::string refusal(const std::string& path) {
    try {
      const NewFile file(path);
    } catch (const Failure& failure) {
      return failure.what();
    }
    return "not refused";
  }

  const testsupport::TemporaryDirectory directory_;
  const fs::path path_ = directory_.path() / "out";
};

TEST_F(NewFileTest, AppearsWholeAndForItsOwnerAlone) {
  NewFile file(path_);
  write(file, "one ");
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_EQ(files(), 1U);
  write(file, "two");
  file.keep();
  EXPECT_EQ(readFile(path_), "one two");
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(files(), 1U);
  file.discard();
  EXPECT_EQ(readFile(path_), "one two");
}

TEST_F(NewFileTest, LeavesNothingWhenItIsNotKept) {
  writeFile(path_, "old");
  {
    NewFile file(path_);
    write(file, "new");
    EXPECT_EQ(files(), 2U);
  }
  EXPECT_EQ(files(), 1U);
  EXPECT_EQ(readFile(path_), "old");
}

TEST_F(NewFileTest, ReplacesAWholeFileByAWholeOne) {
  writeFile(path_, "old and longer");
  NewFile file(path_);
  write(file, "new");
  EXPECT_EQ(readFile(path_), "old and longer");
  file.keep();
  EXPECT_EQ(readFile(path_), "new");
}

TEST_F(NewFileTest, CannotBeKeptOnceDiscarded) {
  NewFile file(path_);
  file.discard();
  EXPECT_EQ(files(), 0U);
  EXPECT_THROW(file.keep(), Failure);
  EXPECT_EQ(files(), 0U);
}

TEST_F(NewFileTest, ReplacesALinkAndNotWhatItPointsTo) {
  writeFile(directory_.path() / "target", "target");
  fs::create_symlink("target", path_);
  NewFile file(path_);
  write(file, "new");
  file.keep();
  EXPECT_FALSE(fs::is_symlink(path_));
  EXPECT_EQ(readFile(path_), "new");
  EXPECT_EQ(readFile(directory_.path() / "target"), "target");
}

TEST_F(NewFileTest, StaysInItsDirectoryWhenThatIsRenamed) {
  const fs::path before = directory_.path() / "before";
  fs::create_directory(before);
  NewFile file(before / "out");
  write(file, "x");
  fs::rename(before, directory_.path() / "after");
  file.keep();
  EXPECT_EQ(readFile(directory_.path() / "after/out"), "x");
}

TEST_F(NewFileTest, MayHaveTheLongestName) {
  const fs::path longest = directory_.path() / std::string(255, 'x');
  NewFile file(longest);
  file.keep();
  EXPECT_TRUE(fs::exists(longest));
  EXPECT_EQ(refusal(directory_.path() / std::string(256, 'x')),
            (directory_.path() / std::string(256, 'x')).string() + ": File name too long");
}

TEST_F(NewFileTest, RefusesPlacesWhereNoFileCanBe) {
  const std::string base = directory_.path();
  EXPECT_EQ(refusal(base), base + ": Is a directory");
  EXPECT_EQ(refusal(base + "/"), base + "/: Is a directory");
  EXPECT_EQ(refusal(base + "/.."), base + "/..: Is a directory");
  EXPECT_EQ(refusal(base + "/no/out"), base + "/no/out: No such file or directory");
  EXPECT_EQ(refusal("/dev/null"), "/dev/null: not a regular file, and is not replaced");
  const std::string pipe = base + "/pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(refusal(pipe), pipe + ": not a regular file, and is not replaced");
  EXPECT_EQ(files(), 1U);
}

}  // namespace
}  // namespace tool
