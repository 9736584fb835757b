// SPDX-License-Identifier: Apache-2.0

// The notation of the conformance set's files.
#include "tests/conformance/wire/WireMessages.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace conformance;

TEST(WireMessages, HexRepetitionsAndCountersBecomeBytes) {
  EXPECT_EQ(bytesOfNotation(""), Bytes());
  EXPECT_EQ(bytesOfNotation("0a ff\n 00"), Bytes({0x0A, 0xFF, 0}));
  EXPECT_EQ(bytesOfNotation("(01 02)*2 03"), Bytes({1, 2, 1, 2, 3}));
  EXPECT_EQ(bytesOfNotation("((01)*2 #u8)*2"), Bytes({1, 1, 0, 1, 1, 1}));
  EXPECT_EQ(bytesOfNotation("(#u16)*3"), Bytes({0, 0, 1, 0, 2, 0}));
  EXPECT_EQ(bytesOfNotation("(#b16)*3"), Bytes({0, 0, 0, 1, 0, 2}));
  EXPECT_EQ(bytesOfNotation("(07)*0"), Bytes());
}

TEST(WireMessages, WhatIsNotInTheNotationIsAnError) {
  for (const char* const wrong : {"0", "0g", "(00", "(00)", "(00)*", "00)*2", "#u12", "#b12", "#x8",
                                  "zz", "(00 00)*99999999", "((00)*9999999)*9"})
    EXPECT_THROW(static_cast<void>(bytesOfNotation(wrong)), std::runtime_error) << wrong;
}

TEST(WireMessages, ATitleSaysToWhomWhatAndWhy) {
  const auto messages = parseWireMessages(
      "# of a test\n\n[one] to client: accepted\n01 02 ; first\n(03)*2\n\n"
      "[two] to router-first: breach: why not: so\n\n[three] to bare-first: refused: NSURL\n00\n",
      "file");
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_EQ(messages[0].name, "one");
  EXPECT_EQ(messages[0].receiver, Receiver::Client);
  EXPECT_EQ(messages[0].verdict, Verdict::Accepted);
  EXPECT_EQ(messages[0].bytes, Bytes({1, 2, 3, 3}));
  EXPECT_EQ(messages[1].receiver, Receiver::RouterFirst);
  EXPECT_EQ(messages[1].verdict, Verdict::Breach);
  EXPECT_EQ(messages[1].reason, "why not: so");
  EXPECT_TRUE(messages[1].bytes.empty());
  EXPECT_EQ(messages[2].reason, "NSURL");
}

TEST(WireMessages, ABadTitleIsAnErrorThatNamesItsPlace) {
  for (const char* const wrong : {"[x] to nobody: accepted\n", "[x] to client: perhaps\n",
                                  "[x] client\n", "[x] to client: breach\n",
                                  "[x] to client: accepted: why\n", "[x] to client: accepted\n0\n"})
    EXPECT_THROW(static_cast<void>(parseWireMessages(wrong, "file")), std::runtime_error) << wrong;
  try {
    static_cast<void>(parseWireMessages("#\n[x] to nobody: accepted\n", "a.txt"));
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), "a.txt, before line 3: unknown receiver: nobody");
  }
}
