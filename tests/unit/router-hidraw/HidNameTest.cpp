// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/HidName.h"

#include <gtest/gtest.h>

namespace {

using router::HidName;

TEST(HidName, IsReadAsTheKernelWritesIt) {
  EXPECT_EQ(HidName::parse("0003:046D:C52B.001A"), (HidName{3, 0x46d, 0xc52b, 0x1a}));
  EXPECT_EQ(HidName::parse("0018:04F3:3195.0001"), (HidName{0x18, 0x4f3, 0x3195, 1}));
  EXPECT_EQ(HidName::parse("0003:0000:12345678.10000"), (HidName{3, 0, 0x12345678, 0x10000}));
}

TEST(HidName, WhatTheKernelWouldNotWriteIsNone) {
  for (const char* text :
       {"", "0003:046D:C52B", "0003:046D:C52B.", "0003:046D:C52B.1A", "003:046D:C52B.001A",
        "0003:046d:C52B.001A", "0003:046D:C52B.001A ", "0003:046D:C52B.001A/x",
        "+003:046D:C52B.0001", "0003:046D:C52B.-001", "0003:046D:C52B.00010", "0003:046D.C52B:001A",
        "0003:046D:C52B.001G", "0x03:046D:C52B.001A", "00003:046D:C52B.001A",
        "0003:046D:C52B.001A.0001", "hidraw0", "0003:046D:C52B.100000000",
        "0003:123456789:C52B.0001"})
    EXPECT_FALSE(HidName::parse(text)) << text;
}

TEST(HidName, ItsNumberMakesTheID) {
  EXPECT_EQ(HidName::parse("0003:046D:C52B.0001")->registryEntryID(), 0x10001U);
  EXPECT_EQ(HidName::parse("0003:046D:C52B.1A2B3C")->registryEntryID(), 0x1b2b3cU);
}

TEST(HidName, AnIDStaysBelowThoseOfRecordings) {
  EXPECT_EQ(HidName::parse("0003:046D:C52B.FFFEFFFF")->registryEntryID(), 0xffffffffU);
  EXPECT_FALSE(HidName::parse("0003:046D:C52B.FFFF0000"));
}

}  // namespace
