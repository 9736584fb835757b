// SPDX-License-Identifier: Apache-2.0

#include "tool/command/Command.h"

#include <gtest/gtest.h>

#include "platform/services/Authorization.h"

namespace tool {
namespace {

TEST(OneLine, NeutralisesWhatATerminalWouldActOn) {
  EXPECT_EQ(oneLine("a\nb\tc\x1b[31m\x7f"), "a\\x0ab c\\x1b[31m\\x7f");
  EXPECT_EQ(oneLine("na\u00efve \u202etxt"), "na\u00efve \\u202etxt");
  EXPECT_EQ(oneLine("bad\xff"), "bad\\xff");
}

TEST(OneLine, HasRoomForTwoOfTheLongestPaths) {
  const std::string paths(8000, 'x');
  EXPECT_EQ(oneLine(paths), paths);
  EXPECT_LT(oneLine(paths + "y").size(), 8010U);
}

TEST(DescribeError, SaysInWordsWhatAuthorizationAnswered) {
  const auto domain = platform::str(platform::NSOSStatusErrorDomain);
  const auto error = [&](std::int64_t code) {
    return platform::NSError::errorWithDomain_code_userInfo(domain, code, nullptr);
  };
  EXPECT_EQ(describeError(error(-60005)), "authorization denied (NSOSStatusErrorDomain -60005)");
  EXPECT_EQ(describeError(error(-60006)), "authorization canceled (NSOSStatusErrorDomain -60006)");
  EXPECT_EQ(describeError(error(-1)), "NSOSStatusErrorDomain -1");
}

TEST(DescribeError, PrefersTheErrorsOwnDescription) {
  const auto info = platform::NSDictionary::dictionaryWithEntries(
      {{platform::str("NSLocalizedDescription"), platform::str("the device is in use")}});
  const auto error = platform::NSError::errorWithDomain_code_userInfo(platform::str("D"), 3, info);
  EXPECT_EQ(describeError(error), "the device is in use (D 3)");
}

TEST(DescribeError, ANullErrorIsNoReason) {
  EXPECT_EQ(describeError(nullptr), "no reason given");
}

}  // namespace
}  // namespace tool
