// SPDX-License-Identifier: Apache-2.0

#include "router/DeviceFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>

#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/jobd/FileOperations.h"

namespace {

namespace fs = std::filesystem;
using router::DeviceFiles;
using router::FileError;
using testing::ElementsAre;
using testing::IsEmpty;

class DeviceFilesTest : public testing::Test {
 protected:
  DeviceFilesTest() { fs::create_directories(directory_); }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(directory_ / name, std::ios::binary) << text;
  }
  [[nodiscard]] std::string content(const std::string& name) const {
    std::array<char, 64> buffer{};
    const router::OpenFile file = files().openConfiguration(name);
    return {buffer.data(), router::readFile(file.descriptor.get(), buffer)};
  }
  [[nodiscard]] DeviceFiles files() const { return DeviceFiles(platform::SystemRoot(root_)); }
  static std::span<const std::uint8_t> bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
  }
  const testsupport::TemporaryDirectory temporary_;
  const fs::path& root_ = temporary_.path();
  const fs::path directory_ = root_ / "etc/hideventrouter";
  std::vector<std::string> problems_;
};

TEST_F(DeviceFilesTest, NamesAreSortedAndBounded) {
  for (const char* name : {"b.plist", "a.plist", "c.plist", ".plist", ".x.plist", "d.txt"})
    write(name, "");
  EXPECT_THAT(files().configurations(3, &problems_), ElementsAre("a", "b", "c"));
  EXPECT_THAT(problems_, IsEmpty());
  EXPECT_EQ(files().configurations(2, &problems_).size(), 2U);
  EXPECT_THAT(problems_,
              ElementsAre(directory_.string() +
                          ": holds more than 2 configurations; the others are left out"));
}

TEST_F(DeviceFilesTest, CreatingReplacesNothing) {
  EXPECT_TRUE(files().createConfiguration("x", bytes("first")));
  EXPECT_FALSE(files().createConfiguration("x", bytes("second")));
  EXPECT_EQ(content("x"), "first");
  files().writeConfiguration("x", bytes("third"));
  EXPECT_EQ(content("x"), "third");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory_), {}), 1) << "something is left behind";
}

TEST_F(DeviceFilesTest, RemovingReachesNoOtherDirectory) {
  write("../x.plist", "");
  write("x.plist", "");
  EXPECT_FALSE(files().removeConfiguration("../x"));
  EXPECT_TRUE(fs::exists(root_ / "etc/x.plist"));
  EXPECT_TRUE(files().removeConfiguration("x"));
  EXPECT_FALSE(files().removeConfiguration("x"));
}

TEST_F(DeviceFilesTest, ARecordingLiesInOneDirectory) {
  fs::create_directories(directory_ / "recordings/deeper");
  write("beside.hid", "");
  write("recordings/.hidden", "");
  write("recordings/deeper/r.hid", "");
  write("recordings/r.hid", "");
  for (const std::string& name :
       {std::string("../beside.hid"), std::string("deeper/r.hid"), std::string(".hidden"),
        std::string(".."), std::string("."), std::string(), (directory_ / "beside.hid").string()}) {
    EXPECT_THROW(static_cast<void>(files().openRecording(name)), FileError) << name;
    EXPECT_EQ(files().recordingStamp(name), std::nullopt) << name;
    EXPECT_FALSE(files().removeRecording(name)) << name;
  }
  EXPECT_EQ(files().recordingStamp("r.hid"), files().openRecording("r.hid").stamp);
  EXPECT_TRUE(files().removeRecording("r.hid"));
  EXPECT_FALSE(files().removeRecording("r.hid"));
  EXPECT_TRUE(fs::exists(directory_ / "beside.hid"));
}

TEST_F(DeviceFilesTest, FilesAreComparedFromTheirBeginning) {
  const std::string text(100'000, 'x');
  write("a", text);
  write("b", text);
  write("c", text + "y");
  write("d", std::string(99'999, 'x') + "y");
  const auto open = [this](const char* name) { return router::openFile(directory_ / name); };
  const router::OpenFile a = open("a");
  for (int i = 0; i < 2; ++i)
    EXPECT_TRUE(router::haveSameContent(a.descriptor.get(), open("b").descriptor.get()));
  for (const char* name : {"c", "d"}) {
    EXPECT_FALSE(router::haveSameContent(a.descriptor.get(), open(name).descriptor.get()));
    EXPECT_FALSE(router::haveSameContent(open(name).descriptor.get(), a.descriptor.get()));
  }
}

TEST_F(DeviceFilesTest, AStampTellsAChangeThatKeepsSizeAndTime) {
  write("x.plist", "one");
  const auto before = files().configurationStamp("x");
  ASSERT_TRUE(before.has_value());
  EXPECT_EQ(files().configurationStamp("x"), before);
  EXPECT_EQ(files().openConfiguration("x").stamp, before);
  const auto time = fs::last_write_time(directory_ / "x.plist");
  write("y.plist", "two");
  fs::last_write_time(directory_ / "y.plist", time);
  fs::rename(directory_ / "y.plist", directory_ / "x.plist");
  EXPECT_NE(files().configurationStamp("x"), before);
  EXPECT_EQ(files().configurationStamp("none"), std::nullopt);
}

TEST_F(DeviceFilesTest, AFileIsOldOnceItsTimeHasPassed) {
  write("x.plist", "one");
  const auto stamp = files().configurationStamp("x");
  EXPECT_TRUE(stamp->isOlderThan(std::chrono::milliseconds(0)));
  EXPECT_FALSE(stamp->isOlderThan(std::chrono::hours(1)));
}

TEST_F(DeviceFilesTest, OnlyRegularFilesAreOpened) {
  ASSERT_EQ(::mkfifo((directory_ / "pipe.plist").c_str(), 0600), 0);
  fs::create_directory(directory_ / "folder.plist");
  for (const char* name : {"pipe", "folder", "none"})
    EXPECT_THROW(static_cast<void>(files().openConfiguration(name)), FileError) << name;
}

/// The error of an action.
template <class Action>
std::pair<std::string, std::error_code> refusalOf(const Action& action) {
  try {
    action();
  } catch (const FileError& error) {
    return {error.what(), error.code()};
  }
  return {"not refused", {}};
}

std::pair<std::string, std::error_code> refusal(const std::string& what, std::errc error) {
  return {what, std::make_error_code(error)};
}

TEST_F(DeviceFilesTest, NamesAreSortedAsTheyAreWithoutTheirSuffix) {
  for (const char* name : {"a.plist", "a-b.plist", "a.b.plist"}) write(name, "");
  EXPECT_THAT(files().configurations(3, &problems_), ElementsAre("a", "a-b", "a.b"));
}

TEST_F(DeviceFilesTest, AStampIsWhatTheSystemSays) {
  write("x.plist", "four");
  const std::string path = directory_ / "x.plist";
  const std::array<timespec, 2> times{timespec{1, 0}, timespec{5, 7}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  const auto stamp = files().configurationStamp("x");
  ASSERT_TRUE(stamp.has_value());
  EXPECT_EQ(stamp->device, status.st_dev);
  EXPECT_EQ(stamp->inode, status.st_ino);
  EXPECT_EQ(stamp->size, 4);
  EXPECT_EQ(stamp->modified, 5'000'000'007);
  EXPECT_EQ(stamp->changed,
            status.st_ctim.tv_sec * std::int64_t{1'000'000'000} + status.st_ctim.tv_nsec);
}

TEST_F(DeviceFilesTest, AStampIsThatOfALinkItself) {
  write("real", "x");
  fs::create_symlink("real", directory_ / "link.plist");
  struct stat link {};
  ASSERT_EQ(::lstat((directory_ / "link.plist").c_str(), &link), 0);
  EXPECT_EQ(files().configurationStamp("link")->inode, link.st_ino);
}

TEST_F(DeviceFilesTest, AnOpenFileKnowsItsMode) {
  write("x.plist", "");
  ASSERT_EQ(::chmod((directory_ / "x.plist").c_str(), 0640), 0);
  EXPECT_EQ(files().openConfiguration("x").mode, S_IFREG | 0640U);
  EXPECT_EQ(router::openFile(directory_ / "x.plist").mode, S_IFREG | 0640U);
}

TEST_F(DeviceFilesTest, WhatCannotBeOpenedSaysWhy) {
  const auto open = [this](const char* name) {
    return refusalOf([&] { static_cast<void>(files().openConfiguration(name)); });
  };
  const auto missing =
      refusal("cannot be read: No such file or directory", std::errc::no_such_file_or_directory);
  EXPECT_EQ(open("none"), missing);
  fs::create_directory(directory_ / "folder.plist");
  EXPECT_EQ(open("folder").first, "is not a regular file");
  fs::create_symlink("none", directory_ / "link.plist");
  EXPECT_EQ(open("link").first, "is a symbolic link, which is not followed");
  EXPECT_EQ(refusalOf([&] { static_cast<void>(files().openRecording("none.hid")); }), missing);
  EXPECT_EQ(refusalOf([&] { static_cast<void>(router::openFile(directory_ / "none")); }), missing);
  fs::remove_all(directory_);
  EXPECT_EQ(open("none"), missing);
}

TEST_F(DeviceFilesTest, WhatCannotBeRemovedSaysWhy) {
  fs::create_directories(directory_ / "recordings/r.hid");
  fs::create_directory(directory_ / "x.plist");
  const auto expected = refusal("cannot be removed: Is a directory", std::errc::is_a_directory);
  EXPECT_EQ(refusalOf([&] { static_cast<void>(files().removeConfiguration("x")); }), expected);
  EXPECT_EQ(refusalOf([&] { static_cast<void>(files().removeRecording("r.hid")); }), expected);
}

TEST_F(DeviceFilesTest, WhereThereIsNoDirectoryThereIsNothing) {
  fs::remove_all(root_ / "etc");
  EXPECT_THAT(files().configurations(10, &problems_), IsEmpty());
  EXPECT_THAT(problems_, IsEmpty());
  EXPECT_EQ(files().configurationStamp("x"), std::nullopt);
  EXPECT_EQ(files().recordingStamp("x.hid"), std::nullopt);
  EXPECT_FALSE(files().removeConfiguration("x"));
  EXPECT_FALSE(files().removeRecording("x.hid"));
  EXPECT_FALSE(fs::exists(root_ / "etc")) << "asking made it";
  files().writeConfiguration("x", bytes("made"));
  EXPECT_EQ(content("x"), "made");
}

TEST_F(DeviceFilesTest, WhereTheDirectoryCannotBeReadThereIsAProblem) {
  fs::remove(directory_);
  std::ofstream(directory_.string()) << "a file";
  EXPECT_THAT(files().configurations(10, &problems_), IsEmpty());
  EXPECT_THAT(problems_, ElementsAre(testing::StartsWith(directory_.string() + ": ")));
  EXPECT_EQ(files().configurationStamp("x"), std::nullopt);
}

TEST_F(DeviceFilesTest, PathsForPeople) {
  EXPECT_EQ(files().configurationPath("x"), (directory_ / "x.plist").string());
  EXPECT_EQ(files().recordingPath(), (directory_ / "recordings").string());
  EXPECT_EQ(files().recordingPath("r.hid"), (directory_ / "recordings/r.hid").string());
}

TEST_F(DeviceFilesTest, AFileIsReadWhateverEarlierCallsFailedWith) {
  write("x.plist", std::string(30, 'x'));
  const router::OpenFile file = files().openConfiguration("x");
  std::array<char, 64> buffer{};
  fileoperations::limitReads({-EINTR, 1, -EINTR, 10});
  EXPECT_EQ(router::readFile(file.descriptor.get(), buffer), 30U);
  ASSERT_EQ(::lseek(file.descriptor.get(), 0, SEEK_SET), 0);
  errno = EINTR;
  EXPECT_EQ(router::readFile(file.descriptor.get(), buffer), 30U);
  EXPECT_EQ(router::readFile(file.descriptor.get(), std::span(buffer).first(0)), 0U);
}

TEST_F(DeviceFilesTest, WhatCannotBeReadSaysWhy) {
  const platform::FileDescriptor directory(
      ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::array<char, 8> buffer{};
  EXPECT_EQ(refusalOf([&] { static_cast<void>(router::readFile(directory.get(), buffer)); }),
            refusal("cannot be read: Is a directory", std::errc::is_a_directory));
}

TEST_F(DeviceFilesTest, FilesAreComparedToTheirEndWhateverTheirLength) {
  const std::string text(131'072, 'x');
  write("whole", text);
  write("same", text);
  write("longer", text + "x");
  write("empty", "");
  const auto open = [this](const char* name) { return router::openFile(directory_ / name); };
  const router::OpenFile whole = open("whole");
  const router::OpenFile same = open("same");
  for (int i = 0; i < 2; ++i)
    EXPECT_TRUE(router::haveSameContent(whole.descriptor.get(), same.descriptor.get()));
  for (const char* name : {"longer", "empty"}) {
    EXPECT_FALSE(router::haveSameContent(whole.descriptor.get(), open(name).descriptor.get()));
    EXPECT_FALSE(router::haveSameContent(open(name).descriptor.get(), whole.descriptor.get()));
  }
  EXPECT_TRUE(
      router::haveSameContent(open("empty").descriptor.get(), open("empty").descriptor.get()));
}

}  // namespace
