// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/foundation/ForwardingFoundationProvider.h"
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

TEST_F(FilesTest, IsNullForAnythingButAReadableFile) {
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

TEST(NSLog, WritesNothingThatATerminalObeysOrThatLooksLikeAnotherLine) {
  testing::internal::CaptureStderr();
  NSLog("No authorization: %s", "\x1b[2J\nrouter: granted\u202e");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "No authorization: \\x1b[2J\\x0arouter: granted\\u202e\n");
}

TEST(StandardError, KeepsErrno) {
  testing::internal::CaptureStderr();
  errno = EXDEV;
  writeLineToStandardError("");
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\n");
}

/// Makes standard error a non-blocking pipe that nobody reads.
class FullStandardError {
 public:
  FullStandardError() : before_(::dup(STDERR_FILENO)) {
    EXPECT_EQ(::pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0);
    ::dup2(ends_[1], STDERR_FILENO);
  }
  FullStandardError(const FullStandardError&) = delete;
  FullStandardError& operator=(const FullStandardError&) = delete;
  ~FullStandardError() {
    ::dup2(before_, STDERR_FILENO);
    for (const int each : {before_, ends_[0], ends_[1]}) ::close(each);
  }
  [[nodiscard]] std::string readAll() const {
    std::string text;
    std::array<char, 4096> room{};
    for (ssize_t got = 0; (got = ::read(ends_[0], room.data(), room.size())) > 0;)
      text.append(room.data(), static_cast<std::size_t>(got));
    return text;
  }

 private:
  std::array<int, 2> ends_{};
  const int before_;
};

TEST(StandardError, WritesWhatThereIsRoomForAndWaitsForNobody) {
  std::string line;
  while (line.size() < 1'000'000) line += std::to_string(line.size()) + " ";
  std::string written;
  int error = 0;
  {
    const FullStandardError pipe;
    errno = EXDEV;
    writeLineToStandardError(line);
    error = errno;
    written = pipe.readAll();
  }
  EXPECT_EQ(error, EXDEV);
  EXPECT_GT(written.size(), 4000U);
  EXPECT_LT(written.size(), line.size());
  EXPECT_TRUE(line.starts_with(written));
}

/// Implements only what a provider must.
class OneFile : public FoundationProvider {
 public:
  explicit OneFile(std::string_view text) : text_(text) {}
  std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path) override {
    if (path->UTF8String() != "/there") return nullptr;
    return NSData::dataWithBytes(
        {reinterpret_cast<const std::uint8_t*>(text_.data()), text_.size()});
  }
  std::shared_ptr<NSString> mainBundlePath() override { return nullptr; }
  std::shared_ptr<NSObject> propertyListWithData(const std::shared_ptr<NSData>&,
                                                 NSPropertyListFormat*,
                                                 std::shared_ptr<NSError>*) override {
    return nullptr;
  }
  std::shared_ptr<NSNotificationCenter> defaultCenter() override { return nullptr; }
  void log(std::string_view) override {}

 private:
  const std::string_view text_;
};

TEST(FoundationProvider, HandsOutAWholeFileAsOnePieceWhereItSaysNothingElse) {
  std::string calls;
  const auto look = [&](bool answer) {
    return [&calls, answer](std::string_view piece) {
      calls += "look " + std::string(piece) + ";";
      return answer;
    };
  };
  const auto take = [&](std::string_view piece) {
    calls += "take " + std::string(piece) + ";";
    return true;
  };
  OneFile provider("text");
  EXPECT_EQ(provider.readFile(str("/missing"), look(true), take), ENOENT);
  EXPECT_EQ(calls, "");
  EXPECT_EQ(provider.readFile(str("/there"), look(true), take), 0);
  EXPECT_EQ(calls, "look text;take text;");
  EXPECT_EQ(provider.readFile(str("/there"), look(false), take), 0);
  EXPECT_EQ(calls, "look text;take text;look text;");
  EXPECT_EQ(OneFile("").readFile(str("/there"), look(true), take), 0);
  EXPECT_EQ(calls, "look text;take text;look text;");
}

/// Answers every call with something recognisable.
class Answers final : public FoundationProvider {
 public:
  std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path) override {
    calls += "data " + path->UTF8String() + ";";
    return data;
  }
  int readFile(const std::shared_ptr<NSString>& path, const PieceHandler& look,
               const PieceHandler& take) override {
    calls += "read " + path->UTF8String() + ";";
    look("looked");
    take("taken");
    return EIO;
  }
  std::shared_ptr<NSString> mainBundlePath() override { return str("/bundle"); }
  std::shared_ptr<NSObject> propertyListWithData(const std::shared_ptr<NSData>& bytes,
                                                 NSPropertyListFormat* returnFormat,
                                                 std::shared_ptr<NSError>* returnError) override {
    EXPECT_EQ(bytes, data);
    *returnFormat = NSPropertyListFormat::Binary;
    *returnError = NSError::errorWithDomain_code_userInfo(str("D"), 5, nullptr);
    return str("list");
  }
  std::shared_ptr<NSNotificationCenter> defaultCenter() override { return center; }
  void log(std::string_view text) override { calls += "log " + std::string(text) + ";"; }

  const std::shared_ptr<NSData> data = NSData::dataWithBytes({});
  const std::shared_ptr<NSNotificationCenter> center = NSNotificationCenter::center();
  std::string calls;
};

TEST(ForwardingFoundationProvider, AnswersAsTheOneBehindIt) {
  const auto behind = std::make_shared<Answers>();
  ForwardingFoundationProvider provider(behind);
  const auto saying = [&](const std::string& who) {
    return [&, who](std::string_view piece) {
      behind->calls += who + " " + std::string(piece) + ";";
      return true;
    };
  };
  EXPECT_EQ(provider.dataWithContentsOfFile(str("/a")), behind->data);
  EXPECT_EQ(provider.readFile(str("/b"), saying("look"), saying("take")), EIO);
  provider.log("text");
  EXPECT_EQ(behind->calls, "data /a;read /b;look looked;take taken;log text;");
  EXPECT_EQ(descriptionOf(provider.mainBundlePath()), "/bundle");
  auto format = NSPropertyListFormat::XML;
  std::shared_ptr<NSError> error;
  EXPECT_EQ(descriptionOf(provider.propertyListWithData(behind->data, &format, &error)), "list");
  EXPECT_EQ(format, NSPropertyListFormat::Binary);
  EXPECT_EQ(error->code(), 5);
  EXPECT_EQ(provider.defaultCenter(), behind->center);
}

TEST_F(FilesTest, APieceThatIsTurnedDownEndsTheReading) {
  write("file", std::string(600'000, 'x'));
  std::size_t looks = 0;
  std::size_t takes = 0;
  const auto read = [&](std::size_t mostLooks, std::size_t mostTakes) {
    looks = takes = 0;
    errno = EINTR;  // left over from something else
    return machineFoundationProvider()->readFile(
        str(path("file")), [&](std::string_view) { return ++looks < mostLooks; },
        [&](std::string_view) { return ++takes < mostTakes; });
  };
  EXPECT_EQ(read(1, 9), 0);
  EXPECT_EQ(std::pair(looks, takes), std::pair(std::size_t{1}, std::size_t{0}));
  EXPECT_EQ(read(9, 1), 0);
  EXPECT_EQ(std::pair(looks, takes), std::pair(std::size_t{1}, std::size_t{1}));
  EXPECT_EQ(read(99, 99), 0);
  EXPECT_EQ(looks, takes);
}

TEST_F(FilesTest, ReadingInPiecesSaysWhyThereIsNothingToRead) {
  const auto fault = [&](const std::string& name) {
    const auto none = [](std::string_view) {
      ADD_FAILURE() << "there is nothing";
      return false;
    };
    return machineFoundationProvider()->readFile(NSString::stringWithUTF8(name), none, none);
  };
  write("file", "x");
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(fault(path("missing")), ENOENT);
  EXPECT_EQ(fault(path("file/below")), ENOTDIR);
  EXPECT_EQ(fault(path(".")), EISDIR);
  EXPECT_EQ(fault(path("fifo")), ENOTSUP);
  EXPECT_EQ(fault("/dev/null"), ENOTSUP);
  EXPECT_EQ(fault(path("file") + std::string("\0z", 2)), ENOENT);
  write("empty", "");
  EXPECT_EQ(fault(path("empty")), 0);
}

TEST_F(FilesTest, ReadingLeavesNoDescriptorOpen) {
  const auto open = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  };
  write("file", std::string(5'000'000, 'x'));
  const auto before = open();
  EXPECT_NE(contents("file"), nullptr);
  EXPECT_EQ(contents("."), nullptr);
  const auto all = [](std::string_view) { return true; };
  EXPECT_EQ(machineFoundationProvider()->readFile(str(path("file")), all, all), 0);
  EXPECT_EQ(open(), before);
}

TEST_F(FilesTest, AFileOfMoreThanAGibibyteIsNull) {
  write("file", "");
  ASSERT_EQ(::truncate(path("file").c_str(), (off_t{1} << 30) + 1), 0);
  EXPECT_EQ(contents("file"), nullptr);
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
