// SPDX-License-Identifier: Apache-2.0

#include "jobd/MappedFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/services/FileDescriptor.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using jobd::MappedFile;
using platform::FileDescriptor;

class MappedFileTest : public testing::Test {
 protected:
  [[nodiscard]] FileDescriptor file(std::uintmax_t size) const {
    const auto path = temporary_.path() / "file";
    testsupport::writeFile(path, "content");
    std::filesystem::resize_file(path, size);
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  }
  static std::string failure(int descriptor) try {
    const MappedFile mapped(descriptor, "it");
    return "mapped";
  } catch (const platform::ServiceError& error) {
    EXPECT_EQ(error.code(), platform::ServiceErrorCode::FileSystem);
    return error.what();
  }

  testsupport::TemporaryDirectory temporary_;
};

TEST_F(MappedFileTest, HasTheFilesBytes) {
  const auto seven = file(7);
  const MappedFile mapped(seven.get(), "it");
  EXPECT_EQ(std::string(mapped.bytes().begin(), mapped.bytes().end()), "content");
}

TEST_F(MappedFileTest, OfAnEmptyFileHasNone) {
  EXPECT_TRUE(MappedFile(file(0).get(), "it").bytes().empty());
  const auto one = file(1);
  EXPECT_EQ(MappedFile(one.get(), "it").bytes().size(), 1U);
}

TEST_F(MappedFileTest, IsAsLargeAsAHelperMayBe) {
  EXPECT_EQ(failure(file(platform::kMaximumHelperBytes).get()), "mapped");
  EXPECT_EQ(failure(file(platform::kMaximumHelperBytes + 1).get()), "it is too large for a helper");
}

TEST_F(MappedFileTest, WhatCannotBeMappedIsNamed) {
  EXPECT_EQ(failure(-1), "cannot examine it: Bad file descriptor");
  const FileDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(failure(null.get()), "it is not a regular file");
  (void)file(7);
  const FileDescriptor written(::open((temporary_.path() / "file").c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(failure(written.get()), "cannot read it: Permission denied");
}

TEST_F(MappedFileTest, IsUnmappedWithItsObject) {
  const auto seven = file(7);
  const auto isMapped = [&] {
    return testsupport::readFile("/proc/self/maps").find((temporary_.path() / "file").string()) !=
           std::string::npos;
  };
  {
    const MappedFile mapped(seven.get(), "it");
    EXPECT_TRUE(isMapped());
  }
  EXPECT_FALSE(isMapped());
}

}  // namespace
