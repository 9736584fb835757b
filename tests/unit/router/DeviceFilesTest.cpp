#include "router/DeviceFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <fstream>

#include "tests/support/TemporaryDirectory.h"

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

}  // namespace
