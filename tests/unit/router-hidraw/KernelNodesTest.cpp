// SPDX-License-Identifier: Apache-2.0

// Real nodes, as far as every machine has some, and the way to them.
#include "router/hidraw/KernelNodes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "router/hidraw/TrustedDirectory.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using router::KernelNodes;
using router::openDirectoryOf;

template <class Call>
int errorNumberOf(const Call& call) {
  try {
    static_cast<void>(call());
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

TEST(KernelNodes, OpensADeviceWithoutBlockingAndForReadingOnly) {
  const auto opened = KernelNodes().open("/dev/zero");
  const int flags = ::fcntl(opened.get(), F_GETFL);
  EXPECT_EQ(flags & O_ACCMODE, O_RDONLY);
  EXPECT_NE(flags & O_NONBLOCK, 0);
  EXPECT_EQ(::fcntl(opened.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(KernelNodes().numberOf(opened.get()), makedev(1, 5));
}

TEST(KernelNodes, OnlyACharacterDeviceHasANumber) {
  const testsupport::TemporaryDirectory directory;
  testsupport::writeFile(directory.path() / "file", "x");
  const platform::FileDescriptor file(::open((directory.path() / "file").c_str(), O_RDONLY));
  EXPECT_EQ(KernelNodes().numberOf(file.get()), std::nullopt);
  EXPECT_EQ(KernelNodes().numberOf(-1), std::nullopt);
}

TEST(KernelNodes, ALinkIsNotFollowed) {
  ASSERT_TRUE(fs::is_symlink("/dev/stdin"));
  EXPECT_EQ(errorNumberOf([] { return KernelNodes().open("/dev/stdin"); }), ELOOP);
  ASSERT_TRUE(fs::is_symlink("/dev/fd"));
  EXPECT_EQ(errorNumberOf([] { return KernelNodes().open("/dev/fd/0"); }), ENOTDIR);
}

TEST(KernelNodes, WhatIsNotThereOrNotBelowDevIsRefused) {
  EXPECT_EQ(errorNumberOf([] { return KernelNodes().open("/dev/none"); }), ENOENT);
  EXPECT_EQ(errorNumberOf([] { return KernelNodes().open("/dev/none/hidraw0"); }), ENOENT);
  for (const char* path :
       {"", "/", "/dev", "/dev/", "hidraw0", "/etc/passwd", "/devices", "/dev/../etc/passwd",
        "/dev/./zero", "/dev//zero", "/dev/..", "/dev/zero/"})
    EXPECT_EQ(errorNumberOf([=] { return KernelNodes().open(path); }), EPERM) << path;
}

TEST(KernelNodes, ANodeThatIsNotHidrawOrInputAnswersWithAnError) {
  const auto zero = KernelNodes().open("/dev/zero");
  EXPECT_EQ(errorNumberOf([&] { return KernelNodes().reportDescriptor(zero.get()); }), ENOTTY);
  EXPECT_EQ(errorNumberOf([&] {
              KernelNodes().grab(zero.get());
              return 0;
            }),
            ENOTTY);
}

TEST(KernelNodes, ReadsOrSaysWhyNot) {
  std::array<std::uint8_t, 4> buffer{1, 1, 1, 1};
  EXPECT_EQ(KernelNodes().read(KernelNodes().open("/dev/zero").get(), buffer), 4);
  EXPECT_EQ(buffer, (std::array<std::uint8_t, 4>{}));
  EXPECT_EQ(KernelNodes().read(-1, buffer), -EBADF);
}

class TrustedDirectory : public testing::Test {
 protected:
  TrustedDirectory() { fs::create_directories(top_ / "one/two"); }
  [[nodiscard]] int errorOf(const std::string& path) const {
    return errorNumberOf([&] { return openDirectoryOf(top_.string() + path, top_.string()); });
  }
  static void allow(const fs::path& path, fs::perms more) {
    fs::permissions(path, more, fs::perm_options::add);
  }
  const testsupport::TemporaryDirectory directory_;
  const fs::path top_ = directory_.path() / "top";
};

TEST_F(TrustedDirectory, IsTheOneThatHoldsThePath) {
  const auto place = openDirectoryOf((top_ / "one/two/three").string(), top_.string());
  EXPECT_EQ(place.name, "three");
  struct stat opened {};
  struct stat expected {};
  ASSERT_EQ(::fstat(place.directory.get(), &opened), 0);
  ASSERT_EQ(::stat((top_ / "one/two").c_str(), &expected), 0);
  EXPECT_EQ(opened.st_ino, expected.st_ino);
  EXPECT_EQ(openDirectoryOf((top_ / "node").string(), top_.string()).name, "node");
}

TEST_F(TrustedDirectory, OnTheWayNobodyElseMayWrite) {
  EXPECT_EQ(errorOf("/one/two/three"), 0);
  for (const fs::path& path : {top_, top_ / "one", top_ / "one/two"}) {
    for (const fs::perms others : {fs::perms::group_write, fs::perms::others_write}) {
      const fs::perms before = fs::status(path).permissions();
      allow(path, others);
      EXPECT_EQ(errorOf("/one/two/three"), EPERM) << path;
      fs::permissions(path, before);
    }
  }
}

TEST_F(TrustedDirectory, OnTheWayNoLinkIsFollowed) {
  fs::create_directory_symlink(top_ / "one", top_ / "link");
  EXPECT_EQ(errorOf("/link/two/three"), ENOTDIR);
  fs::create_directory_symlink(top_, directory_.path() / "top-link");
  const std::string top = (directory_.path() / "top-link").string();
  EXPECT_EQ(errorNumberOf([&] { return openDirectoryOf(top + "/one/two", top); }), ENOTDIR);
}

TEST_F(TrustedDirectory, OnTheWayAFileIsNone) {
  testsupport::writeFile(top_ / "file", "x");
  EXPECT_EQ(errorOf("/file/two"), ENOTDIR);
}

}  // namespace
