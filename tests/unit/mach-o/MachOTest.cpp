// SPDX-License-Identifier: Apache-2.0

// What the section search finds and what it skips, on images made byte by byte.
#include "helper-install/MachO.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/unit/mach-o/MachOBuilder.h"

namespace {

using namespace machotest;

constexpr std::string_view kPlist = "<plist><dict/></plist>";
constexpr std::string_view kOtherPlist = "<plist><array/></plist>";

/// The section's text, or "nothing".
std::string infoPlist(std::span<const std::uint8_t> image) {
  const auto found = findMachOSection(image, "__TEXT", "__info_plist");
  if (!found) return "nothing";
  EXPECT_GE(found->data(), image.data());
  EXPECT_LE(found->data() + found->size(), image.data() + image.size());
  return {found->begin(), found->end()};
}

Section match(std::size_t size = kPlist.size(), std::uint32_t offset = 0x400) {
  return {"__info_plist", "__TEXT", size, offset};
}

TEST(MachO, EmptyDataHasNothing) {
  EXPECT_EQ(infoPlist({}), "nothing");
}

TEST(MachO, ThinImagesYieldExactlyTheSectionsBytes) {
  EXPECT_EQ(infoPlist(thinWithPlist(kPlist, kMagic64)), kPlist);
  EXPECT_EQ(infoPlist(thinWithPlist(kPlist, kMagic32)), kPlist);
}

TEST(MachO, ThinImageIsReadAtAnyAlignment) {
  const Buffer image = thinWithPlist(kPlist);
  for (std::size_t shift = 0; shift < 8; ++shift) {
    Buffer shifted(shift);
    shifted.insert(shifted.end(), image.begin(), image.end());
    EXPECT_EQ(infoPlist(std::span(shifted).subspan(shift)), kPlist) << shift;
  }
}

TEST(MachO, ThinImageOfAnyProcessorIsSearched) {
  Buffer image = thinWithPlist(kPlist);
  put32(image, 4, kARM64);
  EXPECT_EQ(infoPlist(image), kPlist);
}

TEST(MachO, FatWithOnlyArm64HasNothing) {
  EXPECT_EQ(infoPlist(fat({{kARM64, thinWithPlist(kPlist)}})), "nothing");
  EXPECT_EQ(infoPlist(fat({{kARM, thinWithPlist(kPlist)}})), "nothing");
}

TEST(MachO, FatYieldsTheIntelSliceInEitherOrder) {
  const Slice intel{kX86_64, thinWithPlist(kPlist)};
  const Slice arm{kARM64, thinWithPlist(kOtherPlist)};
  EXPECT_EQ(infoPlist(fat({intel, arm})), kPlist);
  EXPECT_EQ(infoPlist(fat({arm, intel})), kPlist);
}

TEST(MachO, FatExaminesExactlyIntelAndPowerPC) {
  for (const auto cpu : {kX86, kX86_64, kPowerPC, kPowerPC64}) {
    EXPECT_EQ(infoPlist(fat({{cpu, thinWithPlist(kPlist)}})), kPlist) << cpu;
  }
  for (const auto cpu :
       {0U, 1U, 6U, 8U, kARM, kARM64, 0x0200000CU, 0x02000007U, 0x81000007U, 0xFFFFFFFFU}) {
    EXPECT_EQ(infoPlist(fat({{cpu, thinWithPlist(kPlist)}})), "nothing") << cpu;
  }
}

TEST(MachO, FatMagicInEitherByteOrderReadsBigEndianFields) {
  EXPECT_EQ(infoPlist(fat({{kX86_64, thinWithPlist(kPlist)}}, 0xCAFEBABE)), kPlist);
  EXPECT_EQ(infoPlist(fat({{kX86_64, thinWithPlist(kPlist)}}, 0xBEBAFECA)), kPlist);
}

TEST(MachO, FatGoesOnToTheNextSliceWhenOneHasNoSuchSection) {
  const Buffer bare = thin(kMagic64, {{0x19, {{"__text", "__TEXT", 4, 0x100}}}}, "code");
  EXPECT_EQ(infoPlist(fat({{kX86, bare}, {kX86_64, thinWithPlist(kPlist)}})), kPlist);
}

TEST(MachO, FatGoesOnWhenASliceIsMalformedInside) {
  const Buffer cutShort{0xCF, 0xFA, 0xED, 0xFE, 0};
  EXPECT_EQ(infoPlist(fat({{kX86, cutShort}, {kX86_64, thinWithPlist(kPlist)}})), kPlist);
}

TEST(MachO, FatFirstMatchWins) {
  EXPECT_EQ(infoPlist(fat({{kX86, thinWithPlist(kPlist)}, {kX86_64, thinWithPlist(kOtherPlist)}})),
            kPlist);
}

TEST(MachO, FatWithoutEntriesHasNothing) {
  EXPECT_EQ(infoPlist(fat({})), "nothing");
}

TEST(MachO, FatTableBeyondTheEndHasNothing) {
  Buffer image = fat({{kARM64, thinWithPlist(kPlist)}});
  putBig32(image, 4, 0xFFFFFFFF);
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, FatSliceBeyondTheEndHasNothing) {
  Buffer image = fat({{kX86_64, thinWithPlist(kPlist)}});
  putBig32(image, 8 + 12, static_cast<std::uint32_t>(image.size()));
  EXPECT_EQ(infoPlist(image), "nothing");
  putBig32(image, 8 + 8, 0xFFFFFFFF);
  putBig32(image, 8 + 12, 0xFFFFFFFF);
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, FatSectionOffsetsCountFromTheSlice) {
  // The section's range lies within the file but not within its slice.
  Buffer slice = thin(kMagic64, {{0x19, {match(kPlist.size(), 0x300)}}});
  Buffer image = fat({{kX86_64, slice}});
  image.resize(0x1000, 'x');
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, NestedFatIsSearchedLikeAnOuterOne) {
  Buffer image = thinWithPlist(kPlist);
  for (int depth = 0; depth < 200; ++depth) image = fat({{kARM64, {}}, {kX86_64, image}});
  EXPECT_EQ(infoPlist(image), kPlist);
}

TEST(MachO, OtherByteOrderHasNothing) {
  for (const std::uint32_t magic : {0xCEFAEDFEU, 0xCFFAEDFEU, 0U, 0x464C457FU}) {
    Buffer image = thinWithPlist(kPlist);
    put32(image, 0, magic);
    EXPECT_EQ(infoPlist(image), "nothing") << magic;
  }
}

TEST(MachO, SectionOfAnotherSegmentIsPassedOver) {
  const Section inData{"__info_plist", "__DATA", 4, 0x100};
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x19, {inData}}}, kPlist)), "nothing");
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x19, {inData, match()}}}, kPlist)), kPlist);
  EXPECT_EQ(infoPlist(thin(kMagic32, {{0x01, {inData}}, {0x01, {match()}}}, kPlist)), kPlist);
}

TEST(MachO, RecordsWithoutSizeOrOffsetArePassedOver) {
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x19, {match(0), match(4, 0), match()}}}, kPlist)), kPlist);
  EXPECT_EQ(infoPlist(thin(kMagic32, {{0x01, {match(0), match(4, 0), match()}}}, kPlist)), kPlist);
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x19, {match(0), match(4, 0)}}}, kPlist)), "nothing");
}

TEST(MachO, CountBeyondThePresentCommandsEndsWithNothing) {
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x1B, {}}}, {}, 0, 1000)), "nothing");
  EXPECT_EQ(infoPlist(thin(kMagic32, {{0x01, {}}}, {}, 0, 0xFFFFFFFF)), "nothing");
}

TEST(MachO, CountOfZeroHasNothing) {
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x19, {match()}}}, kPlist, 0x400, 0)), "nothing");
}

TEST(MachO, CommandsBeyondTheCountAreNotExamined) {
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x1B, {}}, {0x19, {match()}}}, kPlist, 0x400, 1)),
            "nothing");
}

TEST(MachO, HeaderWithoutCommandsAfterItHasNothing) {
  EXPECT_EQ(infoPlist(thin(kMagic64, {}, {}, 0, 1)), "nothing");
  EXPECT_EQ(infoPlist(thin(kMagic32, {}, {}, 0, 1)), "nothing");
}

TEST(MachO, LayoutFollowsTheCommandNotTheHeader) {
  EXPECT_EQ(infoPlist(thin(kMagic32, {{0x19, {match()}}}, kPlist)), kPlist);
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x01, {match()}}}, kPlist)), kPlist);
}

TEST(MachO, NameOfTheEnclosingSegmentIsNotRead) {
  Command command{0x19, {match()}};
  Buffer image = thin(kMagic64, {command}, kPlist);
  putName(image, 32 + 8, "__LINKEDIT");
  EXPECT_EQ(infoPlist(image), kPlist);
}

TEST(MachO, OtherCommandsAreSteppedOver) {
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x1B, {}}, {0x80000022, {}}, {0x19, {}}, {0x19, {match()}}},
                           kPlist)),
            kPlist);
}

TEST(MachO, CommandSizeNeedNotCoverTheSections) {
  Command first{0x19, {match()}};
  first.cmdsize = 8;
  EXPECT_EQ(infoPlist(thin(kMagic64, {first}, kPlist)), kPlist);
}

TEST(MachO, NamesCompareUpToSixteenBytesAndTheFirstNul) {
  const auto named = [](std::string_view section, std::string_view segment) {
    return infoPlist(thin(
        kMagic64, {{0x19, {{std::string(section), std::string(segment), kPlist.size(), 0x400}}}},
        kPlist));
  };
  using namespace std::string_view_literals;
  EXPECT_EQ(named("__info_plist\0zz"sv, "__TEXT\0junk"sv), kPlist);
  EXPECT_EQ(named("__info_plistxxxx", "__TEXT"), "nothing");
  EXPECT_EQ(named("__info_plisT", "__TEXT"), "nothing");
  EXPECT_EQ(named("__info_plis", "__TEXT"), "nothing");
  EXPECT_EQ(named("__info_plist", "__TEXT_"), "nothing");
  EXPECT_EQ(named("__info_plist", "__TEXTxxxxxxxxxx"), "nothing");
}

TEST(MachO, ASixteenCharacterNameNeedsNoNul) {
  const Section section{"0123456789abcdef", "fedcba9876543210", 4, 0x400};
  const Buffer image = thin(kMagic64, {{0x19, {section}}}, "data");
  EXPECT_TRUE(findMachOSection(image, "fedcba9876543210", "0123456789abcdef"));
  EXPECT_FALSE(findMachOSection(image, "fedcba987654321", "0123456789abcdef"));
}

TEST(MachO, SectionRangeBeyondTheEndHasNothing) {
  for (const std::uint64_t size :
       {std::uint64_t{kPlist.size() + 1}, ~std::uint64_t{0}, ~std::uint64_t{0} - 0x3FF,
        (std::uint64_t{1} << 32U) + kPlist.size()}) {
    EXPECT_EQ(infoPlist(thin(kMagic64, {{0x19, {match(size)}}}, kPlist)), "nothing") << size;
  }
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x19, {match(1, 0xFFFFFFFF)}}}, kPlist)), "nothing");
}

TEST(MachO, AnOutOfRangeMatchEndsTheSearch) {
  EXPECT_EQ(infoPlist(thin(kMagic64, {{0x19, {match(0x10000), match()}}}, kPlist)), "nothing");
}

TEST(MachO, RepeatedCommandOfSizeZeroIsDecidedOnce) {
  Command stuck{0x19, {{"__text", "__TEXT", 4, 0x100}}};
  stuck.writeZeroSize = true;
  EXPECT_EQ(infoPlist(thin(kMagic64, {stuck, {0x19, {match()}}}, kPlist, 0x400, 0xFFFFFFFF)),
            "nothing");
  stuck.sections = {match()};
  EXPECT_EQ(infoPlist(thin(kMagic64, {stuck}, kPlist, 0x400, 0xFFFFFFFF)), kPlist);
}

TEST(MachO, ARepeatedCommandUsesUpNothingOfTheSlicesAfterIt) {
  Command stuck{0x19, {{"__text", "__TEXT", 4, 0x100}}};
  stuck.writeZeroSize = true;
  const Buffer repeating = thin(kMagic64, {stuck}, "code", 0x400, 0xFFFFFFFF);
  EXPECT_EQ(infoPlist(fat({{kX86, repeating}, {kX86_64, thinWithPlist(kPlist)}})), kPlist);
}

TEST(MachO, SlicesThatContainThemselvesEnd) {
  constexpr std::uint32_t entries = 1000;
  Buffer image(8 + 20 * entries);
  put32(image, 0, 0xBEBAFECA);
  putBig32(image, 4, entries);
  for (std::uint32_t i = 0; i < entries; ++i) {
    putBig32(image, 8 + 20 * i, kX86_64);
    putBig32(image, 8 + 20 * i + 12, static_cast<std::uint32_t>(image.size()));
  }
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, OverlappingCommandsEndInLinearTime) {
  // A command at every 24 bytes, each claiming 2^32 - 1 section records that run to the end of 8
  // MiB: a billion records.
  Buffer image(8U << 20);
  put32(image, 0, kMagic64);
  put32(image, 16, 0xFFFFFFFF);
  for (std::size_t at = 32; at + 24 <= image.size(); at += 24) {
    put32(image, at, 0x19);
    put32(image, at + 4, 24);
    put32(image, at + 16, 0xFFFFFFFF);
  }
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, ManyHonestSectionsAreAllSeen) {
  std::vector<Command> commands(
      500, Command{0x19, std::vector<Section>(255, Section{"__text", "__TEXT", 4, 0x20})});
  commands.push_back({0x19, {match(kPlist.size(), 0xF00000)}});
  EXPECT_EQ(infoPlist(thin(kMagic64, commands, kPlist, 0xF00000)), kPlist);
}

TEST(MachO, CutAtEveryByteYieldsTheWholeSectionOrNothing) {
  const Buffer whole =
      fat({{kARM64, thinWithPlist(kOtherPlist)}, {kX86, thinWithPlist(kPlist, kMagic32)}});
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    // An exact allocation, so that the sanitizer detects a read beyond it.
    const Buffer cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(infoPlist(cut), length == whole.size() ? kPlist : "nothing") << length;
  }
}

TEST(MachO, EveryBitFlipStaysWithinTheImage) {
  for (const auto& whole :
       {thinWithPlist(kPlist, kMagic64), thinWithPlist(kPlist, kMagic32),
        fat({{kX86, thinWithPlist(kOtherPlist)}, {kX86_64, thinWithPlist(kPlist)}})}) {
    Buffer image = whole;
    for (std::size_t bit = 0; bit < 8 * image.size(); ++bit) {
      image[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
      (void)infoPlist(image);  // checks that the result is inside the image
      image[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
    }
    EXPECT_EQ(image, whole);
  }
}

TEST(MachO, RandomDamageStaysWithinTheImage) {
  std::mt19937 random(20261121);
  const Buffer whole = fat({{kX86, thinWithPlist(kOtherPlist)}, {kX86_64, thinWithPlist(kPlist)}});
  for (int round = 0; round < 20000; ++round) {
    Buffer image(whole.begin(),
                 whole.begin() + static_cast<std::ptrdiff_t>(1 + random() % whole.size()));
    for (int hit = 0; hit < 8; ++hit)
      image[random() % std::min<std::size_t>(image.size(), 300)] =
          static_cast<std::uint8_t>(random());
    (void)infoPlist(image);
  }
}

}  // namespace
