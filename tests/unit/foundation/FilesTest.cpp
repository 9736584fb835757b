#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/StandardError.h"

namespace platform {
namespace {

class FilesTest : public testing::Test {
 protected:
  FilesTest() {
    std::string name = (std::filesystem::temp_directory_path() / "wlhid-files-XXXXXX").string();
    folder_ = ::mkdtemp(name.data());
  }
  ~FilesTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  [[nodiscard]] std::string path(std::string_view name) const { return (folder_ / name).string(); }
  [[nodiscard]] std::shared_ptr<NSData> contents(std::string_view name) const {
    return NSData::dataWithContentsOfFile(str(path(name)));
  }
  void write(std::string_view name, std::string_view text) const {
    std::ofstream(path(name), std::ios::binary) << text;
  }

  std::filesystem::path folder_;
};

TEST_F(FilesTest, ReadsAFileWhole) {
  write("file", std::string_view("a\0b\n", 4));
  const auto data = contents("file");
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(std::string(data->span().begin(), data->span().end()), std::string("a\0b\n", 4));
}

TEST_F(FilesTest, ReadsALargeFileWhole) {
  std::string text(3'000'001, 'x');
  text[1'500'000] = 'y';
  write("file", text);
  const auto data = contents("file");
  ASSERT_NE(data, nullptr);
  EXPECT_TRUE(std::equal(text.begin(), text.end(), data->span().begin(), data->span().end()));
}

TEST_F(FilesTest, AnEmptyFileIsEmptyData) {
  write("file", "");
  ASSERT_NE(contents("file"), nullptr);
  EXPECT_EQ(contents("file")->length(), 0U);
}

TEST_F(FilesTest, FollowsALinkToAFile) {
  write("file", "x");
  std::filesystem::create_symlink("file", path("link"));
  EXPECT_NE(contents("link"), nullptr);
}

TEST_F(FilesTest, IsNullForWhatIsNoReadableFile) {
  EXPECT_EQ(NSData::dataWithContentsOfFile(nullptr), nullptr);
  EXPECT_EQ(NSData::dataWithContentsOfFile(str("")), nullptr);
  EXPECT_EQ(contents("missing"), nullptr);
  EXPECT_EQ(contents("."), nullptr);
  write("file", "x");
  EXPECT_EQ(NSData::dataWithContentsOfFile(str(path("file") + std::string("\0z", 2))), nullptr);
  EXPECT_EQ(contents("file/below"), nullptr);
  std::filesystem::create_symlink("loop", path("loop"));
  EXPECT_EQ(contents("loop"), nullptr);
}

TEST_F(FilesTest, AFIFOWithoutAWriterDoesNotHang) {
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(contents("fifo"), nullptr);
}

TEST_F(FilesTest, ADeviceIsNoFile) {
  EXPECT_EQ(NSData::dataWithContentsOfFile(str("/dev/zero")), nullptr);
}

TEST_F(FilesTest, AFileWithoutPermissionIsNull) {
  write("file", "x");
  ASSERT_EQ(::chmod(path("file").c_str(), 0), 0);
  const bool readable = ::access(path("file").c_str(), R_OK) == 0;  // root reads everything
  EXPECT_EQ(contents("file") != nullptr, readable);
}

TEST_F(FilesTest, ASparseFileOfTerabytesIsNullAndCostsNothing) {
  write("file", "");
  ASSERT_EQ(::truncate(path("file").c_str(), off_t{1} << 41), 0);
  EXPECT_EQ(contents("file"), nullptr);
}

TEST(BundlePath, IsTheApplicationOrTheExecutablesFolder) {
  EXPECT_EQ(bundlePathForExecutable("/a/X.app/Contents/MacOS/x"), "/a/X.app");
  EXPECT_EQ(bundlePathForExecutable("/X.app/Contents/MacOS/x"), "/X.app");
  EXPECT_EQ(bundlePathForExecutable("/usr/bin/x"), "/usr/bin");
  EXPECT_EQ(bundlePathForExecutable("/x"), "/");
  EXPECT_EQ(bundlePathForExecutable("x"), ".");
  EXPECT_EQ(bundlePathForExecutable("/a/X/Contents/MacOS/x"), "/a/X/Contents/MacOS");
  EXPECT_EQ(bundlePathForExecutable("/a/.app/Contents/MacOS/x"), "/a/.app/Contents/MacOS");
  EXPECT_EQ(bundlePathForExecutable("/a/X.app/Contents/MacOS/deeper/x"),
            "/a/X.app/Contents/MacOS/deeper");
  EXPECT_EQ(bundlePathForExecutable("/Contents/MacOS/x"), "/Contents/MacOS");
  EXPECT_EQ(bundlePathForExecutable("/a/XContents/MacOS/x"), "/a/XContents/MacOS");
  EXPECT_EQ(bundlePathForExecutable(""), ".");
}

TEST(BundlePath, OfThisProgramIsWhereItLies) {
  const auto path = NSBundle::mainBundle()->bundlePath();
  ASSERT_NE(path, nullptr);
  EXPECT_EQ(path->UTF8String(),
            std::filesystem::read_symlink("/proc/self/exe").parent_path().string());
}

TEST(NSLog, WritesOneWholeLineToStandardError) {
  testing::internal::CaptureStderr();
  NSLog("Cannot bless %@: %d", str("com.example"), 5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot bless com.example: 5\n");
}

TEST(StandardError, KeepsErrno) {
  testing::internal::CaptureStderr();
  errno = EXDEV;
  writeLineToStandardError("");
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\n");
}

class CountingFoundation final : public FoundationProvider {
 public:
  explicit CountingFoundation(std::vector<std::string>& lines) : lines_(lines) {}
  std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>&) override {
    return NSData::dataWithBytes({});
  }
  std::shared_ptr<NSString> mainBundlePath() override { return nullptr; }
  std::shared_ptr<NSObject> propertyListWithData(const std::shared_ptr<NSData>&,
                                                 NSPropertyListFormat*,
                                                 std::shared_ptr<NSError>*) override {
    return str("scripted");
  }
  std::shared_ptr<NSNotificationCenter> defaultCenter() override { return nullptr; }
  void log(std::string_view text) override { lines_.emplace_back(text); }

 private:
  std::vector<std::string>& lines_;
};

TEST(FoundationProvider, AnotherOneAnswersWhileItIsInPlace) {
  std::vector<std::string> lines;
  const auto machine = foundationProvider().exchange(std::make_shared<CountingFoundation>(lines));
  NSLog("%d", 1);
  EXPECT_EQ(NSBundle::mainBundle()->bundlePath(), nullptr);
  EXPECT_NE(NSData::dataWithContentsOfFile(str("/missing")), nullptr);
  EXPECT_EQ(NSData::dataWithContentsOfFile(nullptr), nullptr);
  EXPECT_EQ(NSNotificationCenter::defaultCenter(), nullptr);
  const auto object = NSPropertyListSerialization::propertyListWithData_options_format_error(
      NSData::dataWithBytes({}), 0, nullptr, nullptr);
  EXPECT_TRUE(object->isEqual(str("scripted")));
  foundationProvider().exchange(machine);
  EXPECT_EQ(lines, std::vector<std::string>{"1"});
  EXPECT_EQ(NSData::dataWithContentsOfFile(str("/missing")), nullptr);
}

}  // namespace
}  // namespace platform
