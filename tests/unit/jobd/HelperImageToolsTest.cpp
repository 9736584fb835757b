// SPDX-License-Identifier: Apache-2.0

// A helper image as seen by other programs that read the format.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/HelperImages.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using testsupport::readFile;

TEST(HelperImageTools, ObjcopyExtractsTheSameBytes) {
  const testsupport::TemporaryDirectory directory;
  const std::string image =
      testsupport::makeImage(WLHID_MKIMAGE, {"com.x", "1.5", WLHID_HELPER_PROGRAM, {}},
                             directory.path() / "image")
          .string();
  const std::string info = (directory.path() / "info").string();
  const std::string program = (directory.path() / "program").string();
  ASSERT_EQ(testsupport::runProgram({WLHID_OBJCOPY, "--dump-section=__TEXT,__info_plist=" + info,
                                     "--dump-section=__ELF,__program=" + program, image,
                                     image + ".copy"}),
            0);
  EXPECT_EQ(readFile(program), readFile(WLHID_HELPER_PROGRAM));
  EXPECT_THAT(readFile(info), testing::HasSubstr("<string>1.5</string>"));
}

TEST(HelperImageTools, ObjdumpFindsNoFault) {
  const testsupport::TemporaryDirectory directory;
  const std::string image =
      testsupport::makeImage(WLHID_MKIMAGE, {"com.x", "1.5", WLHID_HELPER_PROGRAM, {}},
                             directory.path() / "image")
          .string();
  EXPECT_EQ(testsupport::runProgram({WLHID_OBJDUMP, "--macho", "--private-headers", image}), 0);
}

}  // namespace
