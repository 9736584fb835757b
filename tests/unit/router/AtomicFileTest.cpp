// SPDX-License-Identifier: Apache-2.0

#include "router/AtomicFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "platform/services/RootFiles.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/jobd/FileOperations.h"

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

TEST_F(AtomicFileTest, OtherwiseItIsForAllToRead) {
  const mode_t before = ::umask(022);
  const FileDraft draft(directory_.get(), "x");
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::fstat(draft.descriptor(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
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

TEST_F(AtomicFileTest, DraftsOfOneNameDoNotDisturbEachOther) {
  FileDraft first(directory_.get(), "x");
  FileDraft second(directory_.get(), "x");
  first.append(bytes("one"));
  second.append(bytes("two"));
  second.replace("b");
  first.replace("a");
  EXPECT_EQ(content("a"), "one");
  EXPECT_EQ(content("b"), "two");
}

/// The hidden name of the draft after the next one, which is ".x.PROCESS.NUMBER".
std::string hiddenNameAfter(const std::string& hidden) {
  const std::size_t number = hidden.rfind('.') + 1;
  return hidden.substr(0, number) + std::to_string(std::stoul(hidden.substr(number)) + 1);
}

TEST_F(AtomicFileTest, WhatAProcessOfTheSameNumberLeftIsInNobodysWay) {
  std::string hidden;
  {
    const FileDraft draft(directory_.get(), "x");
    hidden = names().at(0);
  }
  EXPECT_THAT(hidden, testing::StartsWith(".x." + std::to_string(::getpid()) + "."));
  std::ofstream(path_ / hiddenNameAfter(hidden)) << "left behind";
  FileDraft draft(directory_.get(), "x");
  draft.append(bytes("new"));
  draft.replace("x");
  EXPECT_EQ(content("x"), "new");
}

TEST_F(AtomicFileTest, AFileIsOnTheDiskBeforeItHasItsName) {
  FileDraft draft(directory_.get(), "x");
  const std::string hidden = names().at(0);
  draft.append(bytes("one"));
  fileoperations::record();
  EXPECT_TRUE(draft.take("y"));
  EXPECT_THAT(fileoperations::recorded(), ElementsAre("sync " + hidden));
  draft.append(bytes("two"));
  fileoperations::record();
  draft.replace("x");
  EXPECT_THAT(fileoperations::recorded(), ElementsAre("sync " + hidden, "rename " + hidden + " x"));
}

TEST_F(AtomicFileTest, AWriteOfAPartGoesOn) {
  FileDraft draft(directory_.get(), "x");
  fileoperations::limitWrites({1, -EINTR, 2});
  draft.append(bytes("parts"));
  draft.replace("x");
  EXPECT_EQ(content("x"), "parts");
}

TEST_F(AtomicFileTest, ANameThatCannotBeGivenIsAnErrorWithItsCause) {
  std::filesystem::create_directories(path_ / "taken/in it");
  FileDraft draft(directory_.get(), "x");
  const auto refusal = [](const auto& give) -> std::pair<std::string, std::error_code> {
    try {
      give();
    } catch (const std::system_error& error) {
      return {error.what(), error.code()};
    }
    return {};
  };
  EXPECT_EQ(refusal([&] { draft.replace("taken"); }),
            std::pair(std::string("taken: cannot be written: Is a directory"),
                      std::make_error_code(std::errc::is_a_directory)));
  EXPECT_EQ(refusal([&] { static_cast<void>(draft.take("none/y")); }),
            std::pair(std::string("none/y: cannot be written: No such file or directory"),
                      std::make_error_code(std::errc::no_such_file_or_directory)));
}

TEST_F(AtomicFileTest, ADirectoryThatIsNoneIsAnErrorWithItsCause) {
  try {
    const FileDraft draft(-1, "x");
    ADD_FAILURE() << "it was made";
  } catch (const std::system_error& error) {
    EXPECT_STREQ(error.what(), "x: cannot be written: Bad file descriptor");
  }
}

TEST_F(AtomicFileTest, AProgramThatIsStartedInheritsNothing) {
  const auto inherited = [] {
    std::vector<int> descriptors;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
      const int descriptor = std::stoi(entry.path().filename());
      const int flags = ::fcntl(descriptor, F_GETFD);
      if (flags >= 0 && (flags & FD_CLOEXEC) == 0) descriptors.push_back(descriptor);
    }
    std::sort(descriptors.begin(), descriptors.end());
    return descriptors;
  };
  const auto before = inherited();
  const FileDraft draft(directory_.get(), "x");
  EXPECT_EQ(inherited(), before);
}

TEST_F(AtomicFileTest, AHeldFileIsHeldUntilItIsClosed) {
  const auto reading = [this] {
    return platform::FileDescriptor(::open((path_ / "x").c_str(), O_RDONLY | O_CLOEXEC));
  };
  router::writeFileAtomically(directory_.get(), "x", bytes("free"));
  EXPECT_FALSE(router::isLocked(reading().get()));
  {
    const auto held = router::writeLockedFile(directory_.get(), "x", bytes("held"));
    EXPECT_EQ(content("x"), "held");
    EXPECT_TRUE(router::isLocked(reading().get()));
  }
  EXPECT_FALSE(router::isLocked(reading().get()));
  EXPECT_FALSE(router::isLocked(-1));
}

TEST_F(AtomicFileTest, OnlyTheDeadLeaveSomethingToRemove) {
  // No process ID is below 2, and a name without a number belongs to no process.
  for (const char* name : {".x.-2147483647.0", ".x.0.0", ".x.", ".x.a.0", ".x.1", ".x.2147483647",
                           ".y.2147483647.0", "x.2147483647.0"})
    std::ofstream(path_ / name) << "half";
  const std::size_t before = names().size();
  router::removeAbandonedWrites(directory_.get(), "x");
  EXPECT_EQ(names().size(), before);
  std::ofstream(path_ / ".x.2147483647.0") << "half";  // larger than any process ID
  router::removeAbandonedWrites(directory_.get(), "x");
  EXPECT_EQ(names().size(), before);
}

}  // namespace
