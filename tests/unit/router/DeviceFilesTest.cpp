#include "router/DeviceFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <array>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using router::DeviceFiles;
using router::FileError;
using testing::ElementsAre;
using testing::IsEmpty;

class DeviceFilesTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "/files.XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    directory_ = fs::path(pattern).lexically_normal();
  }
  void TearDown() override { fs::remove_all(directory_); }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(directory_ / name, std::ios::binary) << text;
  }
  [[nodiscard]] std::string content(const std::string& name) const {
    std::array<char, 64> buffer{};
    const router::OpenFile file = files().openConfiguration(name);
    return {buffer.data(), router::readFile(file.descriptor.get(), buffer)};
  }
  [[nodiscard]] DeviceFiles files() const { return DeviceFiles(directory_); }
  static std::span<const std::uint8_t> bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
  }
  fs::path directory_;
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
  EXPECT_TRUE(files().createConfiguration("x", bytes("")));
  const DeviceFiles below(directory_ / "below");
  fs::create_directory(directory_ / "below");
  EXPECT_FALSE(below.removeConfiguration("../x"));
  EXPECT_TRUE(files().removeConfiguration("x"));
  EXPECT_FALSE(files().removeConfiguration("x"));
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

}  // namespace
