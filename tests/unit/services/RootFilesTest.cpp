// SPDX-License-Identifier: Apache-2.0

// Which directory is accepted as a root: never one that another user could have put there.
#include "platform/services/RootFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "platform/services/ServiceError.h"
#include "tests/support/OtherUser.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::FileDescriptor;
using platform::ServiceError;
using platform::ServiceErrorCode;
using platform::SystemRoot;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// The outcome of an open: "opened", "none", or the cause of its refusal.
std::string outcome(const std::function<FileDescriptor()>& open) try {
  return open() ? "opened" : "none";
} catch (const ServiceError& error) {
  if (error.code() == ServiceErrorCode::NotPermitted) return error.what();
  return std::string("not a refusal: ") + error.what();
}
std::string used(const fs::path& root) {
  return outcome([&] { return platform::openRoot(SystemRoot(root)); });
}
std::string kept(const fs::path& root) {
  return outcome([&] { return platform::openOwnRoot(SystemRoot(root)); });
}

class RootDirectory : public testing::Test {
 protected:
  RootDirectory() { ::chmod(directory_.c_str(), 0755); }
  [[nodiscard]] fs::path made(const std::string& name, mode_t mode = 0755) const {
    fs::path path = directory_ / name;
    fs::create_directories(path);
    ::chmod(path.c_str(), mode);
    return path;
  }
  [[nodiscard]] static std::size_t entriesOf(const fs::path& directory) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
  }
  testsupport::TemporaryDirectory temporary_;
  fs::path directory_ = temporary_.path();
};

TEST_F(RootDirectory, IsMadeForWhoKeepsItAndForNobodyElse) {
  const fs::path root = directory_ / "a/b/root";
  EXPECT_EQ(used(root), "none");
  EXPECT_FALSE(fs::exists(directory_ / "a"));
  EXPECT_EQ(kept(root), "opened");
  struct stat status {};
  ASSERT_EQ(::stat((directory_ / "a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
  EXPECT_EQ(used(root), "opened");
}

TEST_F(RootDirectory, ALinkInItsPlaceIsNotFollowed) {
  const fs::path target = made("target");
  fs::create_directory_symlink(target, directory_ / "root");
  EXPECT_THAT(used(directory_ / "root"), HasSubstr("/root is a symbolic link"));
  EXPECT_THAT(kept(directory_ / "root"), HasSubstr("--root DIR"));
  EXPECT_TRUE(fs::is_empty(target));
}

TEST_F(RootDirectory, ALinkAboveItIsNotFollowed) {
  const fs::path target = made("target/root").parent_path();
  fs::create_directory_symlink(target, directory_ / "link");
  EXPECT_THAT(used(directory_ / "link/root"), HasSubstr("/link above the system root"));
  EXPECT_THAT(kept(directory_ / "link/new"), HasSubstr("is a symbolic link"));
  EXPECT_EQ(entriesOf(target), 1U);
}

TEST_F(RootDirectory, ADirectoryAboveItThatOthersCanWriteIsNamedWithTheCure) {
  const fs::path root = made("shared/root");
  for (const mode_t mode : {0775, 0757, 0777}) {
    ::chmod((directory_ / "shared").c_str(), mode);
    for (const std::string& said : {used(root), kept(root)}) {
      EXPECT_THAT(said, HasSubstr("the directory " + (directory_ / "shared").string() +
                                  " above the system root " + root.string()));
      EXPECT_THAT(said, HasSubstr("can be written by others"));
      EXPECT_THAT(said, HasSubstr("chmod go-w"));
    }
  }
  EXPECT_THAT(kept(directory_ / "shared/new"), HasSubstr("can be written by others"));
  EXPECT_EQ(entriesOf(directory_ / "shared"), 1U);
  ::chmod((directory_ / "shared").c_str(), 01777);
  EXPECT_EQ(used(root), "opened") << "in a sticky directory nobody else can take it away";
  EXPECT_EQ(kept(root), "opened");
}

TEST_F(RootDirectory, ARootThatOthersCanWriteIsRefusedStickyOrNot) {
  for (const mode_t mode : {0775, 0757, 01777}) {
    const fs::path root = made("root", mode);
    EXPECT_THAT(used(root), HasSubstr("can be written by others"));
    EXPECT_THAT(kept(root), HasSubstr("can be written by others"));
  }
}

TEST_F(RootDirectory, AFileInItsPlaceOrAboveItIsNoDirectory) {
  testsupport::writeFile(directory_ / "file", "x");
  EXPECT_THAT(used(directory_ / "file"), HasSubstr("is not a directory"));
  EXPECT_THAT(kept(directory_ / "file/root"), HasSubstr("is not a directory"));
}

TEST_F(RootDirectory, OfAnotherUserIsRefusedAndWhoseItIsIsSaid) {
  if (!testsupport::isSuperuser()) {  // anyone may use the superuser's roots, but not manage them
    EXPECT_EQ(used("/usr"), "opened");
    EXPECT_THAT(kept("/usr"), HasSubstr("the system root /usr belongs to root, and this is user"));
    return;
  }
  const fs::path root = made("root");
  ASSERT_EQ(::chown(root.c_str(), testsupport::kOtherUser, testsupport::kOtherUser), 0);
  for (const std::string& said : {used(root), kept(root)}) {
    EXPECT_THAT(said, HasSubstr("the system root " + root.string() +
                                " belongs to user 12345, and this is root: run this as user 12345, "
                                "or choose a root of your own with --root DIR"));
  }
}

TEST_F(RootDirectory, BelowADirectoryOfAnotherUserIsRefusedAndNothingIsMade) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  const fs::path home = made("home");
  ASSERT_EQ(::chown(home.c_str(), testsupport::kOtherUser, testsupport::kOtherUser), 0);
  const fs::path root = home / ".local/state/wlhid/root";
  for (const std::string& said : {used(root), kept(root)}) {
    EXPECT_THAT(said, HasSubstr("the directory " + home.string() + " above the system root " +
                                root.string() + " belongs to user 12345, and this is root"));
  }
  EXPECT_TRUE(fs::is_empty(home));
}

TEST_F(RootDirectory, OfTheSuperuserIsUsedByAllAndKeptByNobodyElse) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  const fs::path root = made("root");
  using testsupport::asUser;
  EXPECT_EQ(asUser(testsupport::kOtherUser, [&] { return used(root); }), "opened");
  EXPECT_THAT(asUser(testsupport::kOtherUser, [&] { return kept(root); }),
              HasSubstr("belongs to root, and this is user 12345"));
}

TEST_F(RootDirectory, ThatWasReachedBeforeIsLookedAtAnewWhenItChanged) {
  const fs::path root = made("root");
  ASSERT_EQ(used(root), "opened");
  ::chmod(root.c_str(), 0777);
  EXPECT_THAT(used(root), HasSubstr("can be written by others (mode 0777)"));
  ::chmod(root.c_str(), 0755);
  ASSERT_EQ(used(root), "opened");
  fs::rename(root, directory_ / "away");
  fs::create_directory_symlink(directory_ / "away", root);
  EXPECT_THAT(used(root), HasSubstr("is a symbolic link"));
  fs::remove(root);
  EXPECT_EQ(used(root), "none");
}

TEST_F(RootDirectory, ThatWasReachedBeforeIsWalkedToAgainWhenAnotherIsInItsPlace) {
  const fs::path way = made("way");
  const fs::path root = made("way/root");
  ASSERT_EQ(used(root), "opened");
  fs::rename(root, directory_ / "away");
  ::chmod(way.c_str(), 0777);
  ASSERT_EQ(made("way/root"), root);
  EXPECT_THAT(used(root), HasSubstr("way above the system root"));
}

TEST_F(RootDirectory, ThatWasReachedByOneUserIsWalkedToAgainByAnother) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  const fs::path way = made("way");
  const fs::path root = made("way/root");
  ASSERT_EQ(used(root), "opened");
  ::chmod(way.c_str(), 0777);
  EXPECT_THAT(testsupport::asUser(testsupport::kOtherUser, [&] { return used(root); }),
              HasSubstr("way above the system root"));
}

TEST_F(RootDirectory, SaysWhatCouldNotBeMadeInIt) {
  const SystemRoot root(made("root"));
  const FileDescriptor open = platform::openOwnRoot(root);
  fs::remove(root.path());
  const std::string why =
      outcome([&] { return platform::openDirectoryBelow(open.get(), "etc/job", true); });
  EXPECT_EQ(why, "not a refusal: cannot make the directory etc: No such file or directory");
}

TEST_F(RootDirectory, OnceOpenedStaysWhatItWas) {
  const fs::path path = made("root");
  testsupport::writeFile(path / "which", "the first");
  const SystemRoot root(platform::openRoot(SystemRoot(path)), path);
  fs::rename(path, directory_ / "away");
  testsupport::writeFile(path / "which", "another");
  const auto again = platform::openRoot(root);
  const auto text = platform::readFileIn(again.get(), "which", 100);
  ASSERT_TRUE(text);
  EXPECT_EQ(std::string(text->begin(), text->end()), "the first");
  EXPECT_EQ(root.path(), path);
}

TEST_F(RootDirectory, ThatWasReachedBeforeIsNotWalkedToAgain) {
  const fs::path way = made("way");
  const fs::path root = made("way/root");
  ASSERT_EQ(used(root), "opened");
  ::chmod(way.c_str(), 0777);
  EXPECT_EQ(used(root), "opened") << "the very same directory, as closed as it was";
  const fs::path other = made("way/other");
  EXPECT_THAT(used(other), HasSubstr("way above the system root")) << "and no other";
}

TEST_F(RootDirectory, ThatWasReachedBeforeAndBelongsToAnotherNowIsRefused) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "only the superuser can give a directory away";
  const fs::path root = made("root");
  ASSERT_EQ(used(root), "opened");
  ASSERT_EQ(::chown(root.c_str(), testsupport::kOtherUser, testsupport::kOtherUser), 0);
  EXPECT_THAT(used(root), HasSubstr("belongs to user 12345"));
}

TEST_F(RootDirectory, TheModeIsSaidAsChmodTakesIt) {
  for (const auto& [mode, text] : {std::pair<mode_t, std::string>{0722, "(mode 0722)"},
                                   {01777, "(mode 1777)"},
                                   {04757, "(mode 4757)"}}) {
    EXPECT_THAT(used(made("root", mode)), HasSubstr(text));
  }
}

TEST_F(RootDirectory, WhatIsMadeCanBeWrittenByItsOwnerAlone) {
  const mode_t mask = ::umask(0);
  const FileDescriptor root = platform::openOwnRoot(SystemRoot(directory_ / "a/root"));
  const FileDescriptor below = platform::openDirectoryBelow(root.get(), "b/c", true);
  ::umask(mask);
  EXPECT_TRUE(below);
  for (const char* name : {"a", "a/root", "a/root/b", "a/root/b/c"}) {
    struct stat status {};
    ASSERT_EQ(::stat((directory_ / name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_mode & 07777U, 0755U) << name;
  }
  EXPECT_TRUE(platform::openDirectoryBelow(root.get(), "b/c", true)) << "it is there already";
}

TEST_F(RootDirectory, SaysWhatCouldNotBeOpenedBelowIt) {
  const FileDescriptor root = platform::openOwnRoot(SystemRoot(made("root")));
  testsupport::writeFile(directory_ / "root/file", "");
  for (const bool create : {false, true}) {
    EXPECT_EQ(outcome([&] { return platform::openDirectoryBelow(root.get(), "file/x", create); }),
              "not a refusal: cannot open the directory file: Not a directory");
  }
  EXPECT_EQ(outcome([&] { return platform::openDirectoryBelow(root.get(), "none/x", false); }),
            "none");
}

TEST_F(RootDirectory, BelowAFileNothingIsMade) {
  testsupport::writeFile(directory_ / "file", "");
  EXPECT_EQ(used(directory_ / "file/root"),
            "not a refusal: the directory " + (directory_ / "file").string() +
                " above the system root " + (directory_ / "file/root").string() +
                " is not a directory");
}

TEST_F(RootDirectory, WhatIsNotOpenCannotBeExamined) {
  EXPECT_EQ(outcome([] {
              platform::checkIsOwn(-1, "it");
              return FileDescriptor();
            }),
            "not a refusal: cannot examine it: Bad file descriptor");
}

TEST_F(RootDirectory, ALinkIsSaidToBeOneWithTheCure) {
  fs::create_directory_symlink(made("target"), directory_ / "root");
  EXPECT_EQ(used(directory_ / "root"),
            "the system root " + (directory_ / "root").string() +
                " is a symbolic link, which is not followed: name the directory that it points to, "
                "with --root DIR");
}

}  // namespace
