// SPDX-License-Identifier: Apache-2.0

// The section search on executables made by a real linker, compared with what another reader
// extracts.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "helper-install/MachO.h"

namespace {

std::vector<std::uint8_t> fixture(const std::string& name) {
  std::ifstream in(std::string(MACH_O_FIXTURES) + "/" + name, std::ios::binary);
  EXPECT_TRUE(in.is_open()) << name;
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string text(const std::vector<std::uint8_t>& bytes) {
  return {bytes.begin(), bytes.end()};
}

std::string infoPlist(const std::vector<std::uint8_t>& image) {
  const auto found = findMachOSection(image, "__TEXT", "__info_plist");
  return found ? std::string(found->begin(), found->end()) : "nothing";
}

TEST(MachOFixture, LinkedThinImagesGiveWhatTheOtherReaderExtracts) {
  for (const std::string arch : {"x86_64", "arm64"}) {
    EXPECT_EQ(infoPlist(fixture(arch)), text(fixture(arch + ".dump")));
    EXPECT_EQ(infoPlist(fixture(arch)), text(fixture(arch + ".plist")));
  }
}

TEST(MachOFixture, LinkedImageWithoutTheSectionHasNothing) {
  EXPECT_EQ(infoPlist(fixture("bare")), "nothing");
}

TEST(MachOFixture, ThirtyTwoBitImage) {
  EXPECT_EQ(infoPlist(fixture("i386")), "<plist><true i386/></pli");
}

TEST(MachOFixture, FatFilesGiveTheIntelSliceInEitherOrder) {
  auto fat = fixture("fat");
  ASSERT_GT(fat.size(), 48U);
  EXPECT_EQ(fat[8 + 3], 0x07);  // the first entry's processor, low byte
  EXPECT_EQ(infoPlist(fat), text(fixture("x86_64.plist")));
  std::swap_ranges(fat.begin() + 8, fat.begin() + 28, fat.begin() + 28);
  EXPECT_EQ(fat[8 + 3], 0x0C);
  EXPECT_EQ(infoPlist(fat), text(fixture("x86_64.plist")));
}

TEST(MachOFixture, FatFileWithArmOnlyHasNothing) {
  EXPECT_EQ(infoPlist(fixture("fat-arm-only")), "nothing");
}

TEST(MachOFixture, FatFileOfI386AndABareSlice) {
  EXPECT_EQ(infoPlist(fixture("fat-i386-and-bare")), "<plist><true i386/></pli");
}

}  // namespace
