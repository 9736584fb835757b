// What the section search finds and what it skips, on images made byte by byte.
#include "helper-install/MachO.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/unit/mach-o/MachOBuilder.h"

namespace {

using namespace machotest;

constexpr std::string_view plist = "<plist><dict/></plist>";
constexpr std::string_view otherPlist = "<plist><array/></plist>";

/// The section's text, or "nothing".
std::string infoPlist(std::span<const std::uint8_t> image) {
  const auto found = findMachOSection(image, "__TEXT", "__info_plist");
  if (!found) return "nothing";
  EXPECT_GE(found->data(), image.data());
  EXPECT_LE(found->data() + found->size(), image.data() + image.size());
  return {found->begin(), found->end()};
}

Section match(std::size_t size = plist.size(), std::uint32_t offset = 0x400) {
  return {"__info_plist", "__TEXT", size, offset};
}

TEST(MachO, EmptyDataHasNothing) {
  EXPECT_EQ(infoPlist({}), "nothing");
}

TEST(MachO, ThinImagesYieldExactlyTheSectionsBytes) {
  EXPECT_EQ(infoPlist(thinWithPlist(plist, magic64)), plist);
  EXPECT_EQ(infoPlist(thinWithPlist(plist, magic32)), plist);
}

TEST(MachO, ThinImageIsReadAtAnyAlignment) {
  const Buffer image = thinWithPlist(plist);
  for (std::size_t shift = 0; shift < 8; ++shift) {
    Buffer shifted(shift);
    shifted.insert(shifted.end(), image.begin(), image.end());
    EXPECT_EQ(infoPlist(std::span(shifted).subspan(shift)), plist) << shift;
  }
}

TEST(MachO, ThinImageOfAnyProcessorIsSearched) {
  Buffer image = thinWithPlist(plist);
  put32(image, 4, cpuARM64);
  EXPECT_EQ(infoPlist(image), plist);
}

TEST(MachO, FatWithOnlyArm64HasNothing) {
  EXPECT_EQ(infoPlist(fat({{cpuARM64, thinWithPlist(plist)}})), "nothing");
  EXPECT_EQ(infoPlist(fat({{cpuARM, thinWithPlist(plist)}})), "nothing");
}

TEST(MachO, FatYieldsTheIntelSliceInEitherOrder) {
  const Slice intel{cpuX86_64, thinWithPlist(plist)};
  const Slice arm{cpuARM64, thinWithPlist(otherPlist)};
  EXPECT_EQ(infoPlist(fat({intel, arm})), plist);
  EXPECT_EQ(infoPlist(fat({arm, intel})), plist);
}

TEST(MachO, FatExaminesExactlyIntelAndPowerPC) {
  for (const auto cpu : {cpuX86, cpuX86_64, cpuPowerPC, cpuPowerPC64}) {
    EXPECT_EQ(infoPlist(fat({{cpu, thinWithPlist(plist)}})), plist) << cpu;
  }
  for (const auto cpu :
       {0U, 1U, 6U, 8U, cpuARM, cpuARM64, 0x0200000CU, 0x02000007U, 0x81000007U, 0xFFFFFFFFU}) {
    EXPECT_EQ(infoPlist(fat({{cpu, thinWithPlist(plist)}})), "nothing") << cpu;
  }
}

TEST(MachO, FatMagicInEitherByteOrderReadsBigEndianFields) {
  EXPECT_EQ(infoPlist(fat({{cpuX86_64, thinWithPlist(plist)}}, 0xCAFEBABE)), plist);
  EXPECT_EQ(infoPlist(fat({{cpuX86_64, thinWithPlist(plist)}}, 0xBEBAFECA)), plist);
}

TEST(MachO, FatGoesOnToTheNextSliceWhenOneHasNoSuchSection) {
  const Buffer bare = thin(magic64, {{0x19, {{"__text", "__TEXT", 4, 0x100}}}}, "code");
  EXPECT_EQ(infoPlist(fat({{cpuX86, bare}, {cpuX86_64, thinWithPlist(plist)}})), plist);
}

TEST(MachO, FatGoesOnWhenASliceIsMalformedInside) {
  const Buffer cutShort{0xCF, 0xFA, 0xED, 0xFE, 0};
  EXPECT_EQ(infoPlist(fat({{cpuX86, cutShort}, {cpuX86_64, thinWithPlist(plist)}})), plist);
}

TEST(MachO, FatFirstMatchWins) {
  EXPECT_EQ(
      infoPlist(fat({{cpuX86, thinWithPlist(plist)}, {cpuX86_64, thinWithPlist(otherPlist)}})),
      plist);
}

TEST(MachO, FatWithoutEntriesHasNothing) {
  EXPECT_EQ(infoPlist(fat({})), "nothing");
}

TEST(MachO, FatTableBeyondTheEndHasNothing) {
  Buffer image = fat({{cpuARM64, thinWithPlist(plist)}});
  putBig32(image, 4, 0xFFFFFFFF);
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, FatSliceBeyondTheEndHasNothing) {
  Buffer image = fat({{cpuX86_64, thinWithPlist(plist)}});
  putBig32(image, 8 + 12, static_cast<std::uint32_t>(image.size()));
  EXPECT_EQ(infoPlist(image), "nothing");
  putBig32(image, 8 + 8, 0xFFFFFFFF);
  putBig32(image, 8 + 12, 0xFFFFFFFF);
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, FatSectionOffsetsCountFromTheSlice) {
  // The section's range lies within the file but not within its slice.
  Buffer slice = thin(magic64, {{0x19, {match(plist.size(), 0x300)}}});
  Buffer image = fat({{cpuX86_64, slice}});
  image.resize(0x1000, 'x');
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, NestedFatIsSearchedLikeAnOuterOne) {
  Buffer image = thinWithPlist(plist);
  for (int depth = 0; depth < 200; ++depth) image = fat({{cpuARM64, {}}, {cpuX86_64, image}});
  EXPECT_EQ(infoPlist(image), plist);
}

TEST(MachO, OtherByteOrderHasNothing) {
  for (const std::uint32_t magic : {0xCEFAEDFEU, 0xCFFAEDFEU, 0U, 0x464C457FU}) {
    Buffer image = thinWithPlist(plist);
    put32(image, 0, magic);
    EXPECT_EQ(infoPlist(image), "nothing") << magic;
  }
}

TEST(MachO, SectionOfAnotherSegmentIsPassedOver) {
  const Section inData{"__info_plist", "__DATA", 4, 0x100};
  EXPECT_EQ(infoPlist(thin(magic64, {{0x19, {inData}}}, plist)), "nothing");
  EXPECT_EQ(infoPlist(thin(magic64, {{0x19, {inData, match()}}}, plist)), plist);
  EXPECT_EQ(infoPlist(thin(magic32, {{0x01, {inData}}, {0x01, {match()}}}, plist)), plist);
}

TEST(MachO, RecordsWithoutSizeOrOffsetArePassedOver) {
  EXPECT_EQ(infoPlist(thin(magic64, {{0x19, {match(0), match(4, 0), match()}}}, plist)), plist);
  EXPECT_EQ(infoPlist(thin(magic32, {{0x01, {match(0), match(4, 0), match()}}}, plist)), plist);
  EXPECT_EQ(infoPlist(thin(magic64, {{0x19, {match(0), match(4, 0)}}}, plist)), "nothing");
}

TEST(MachO, CountBeyondThePresentCommandsEndsWithNothing) {
  EXPECT_EQ(infoPlist(thin(magic64, {{0x1B, {}}}, {}, 0, 1000)), "nothing");
  EXPECT_EQ(infoPlist(thin(magic32, {{0x01, {}}}, {}, 0, 0xFFFFFFFF)), "nothing");
}

TEST(MachO, CountOfZeroHasNothing) {
  EXPECT_EQ(infoPlist(thin(magic64, {{0x19, {match()}}}, plist, 0x400, 0)), "nothing");
}

TEST(MachO, CommandsBeyondTheCountAreNotExamined) {
  EXPECT_EQ(infoPlist(thin(magic64, {{0x1B, {}}, {0x19, {match()}}}, plist, 0x400, 1)), "nothing");
}

TEST(MachO, HeaderWithoutCommandsBehindItHasNothing) {
  EXPECT_EQ(infoPlist(thin(magic64, {}, {}, 0, 1)), "nothing");
  EXPECT_EQ(infoPlist(thin(magic32, {}, {}, 0, 1)), "nothing");
}

TEST(MachO, LayoutFollowsTheCommandNotTheHeader) {
  EXPECT_EQ(infoPlist(thin(magic32, {{0x19, {match()}}}, plist)), plist);
  EXPECT_EQ(infoPlist(thin(magic64, {{0x01, {match()}}}, plist)), plist);
}

TEST(MachO, NameOfTheEnclosingSegmentIsNotRead) {
  Command command{0x19, {match()}};
  Buffer image = thin(magic64, {command}, plist);
  putName(image, 32 + 8, "__LINKEDIT");
  EXPECT_EQ(infoPlist(image), plist);
}

TEST(MachO, OtherCommandsAreSteppedOver) {
  EXPECT_EQ(infoPlist(thin(magic64, {{0x1B, {}}, {0x80000022, {}}, {0x19, {}}, {0x19, {match()}}},
                           plist)),
            plist);
}

TEST(MachO, CommandSizeNeedNotCoverTheSections) {
  Command first{0x19, {match()}};
  first.cmdsize = 8;
  EXPECT_EQ(infoPlist(thin(magic64, {first}, plist)), plist);
}

TEST(MachO, NamesCompareUpToSixteenBytesAndTheFirstNul) {
  const auto named = [](std::string_view section, std::string_view segment) {
    return infoPlist(
        thin(magic64, {{0x19, {{std::string(section), std::string(segment), plist.size(), 0x400}}}},
             plist));
  };
  using namespace std::string_view_literals;
  EXPECT_EQ(named("__info_plist\0zz"sv, "__TEXT\0junk"sv), plist);
  EXPECT_EQ(named("__info_plistxxxx", "__TEXT"), "nothing");
  EXPECT_EQ(named("__info_plisT", "__TEXT"), "nothing");
  EXPECT_EQ(named("__info_plis", "__TEXT"), "nothing");
  EXPECT_EQ(named("__info_plist", "__TEXT_"), "nothing");
  EXPECT_EQ(named("__info_plist", "__TEXTxxxxxxxxxx"), "nothing");
}

TEST(MachO, ASixteenCharacterNameNeedsNoNul) {
  const Section section{"0123456789abcdef", "fedcba9876543210", 4, 0x400};
  const Buffer image = thin(magic64, {{0x19, {section}}}, "data");
  EXPECT_TRUE(findMachOSection(image, "fedcba9876543210", "0123456789abcdef"));
  EXPECT_FALSE(findMachOSection(image, "fedcba987654321", "0123456789abcdef"));
}

TEST(MachO, SectionRangeBeyondTheEndHasNothing) {
  for (const std::uint64_t size :
       {std::uint64_t{plist.size() + 1}, ~std::uint64_t{0}, ~std::uint64_t{0} - 0x3FF,
        (std::uint64_t{1} << 32U) + plist.size()}) {
    EXPECT_EQ(infoPlist(thin(magic64, {{0x19, {match(size)}}}, plist)), "nothing") << size;
  }
  EXPECT_EQ(infoPlist(thin(magic64, {{0x19, {match(1, 0xFFFFFFFF)}}}, plist)), "nothing");
}

TEST(MachO, AnOutOfRangeMatchEndsTheSearch) {
  EXPECT_EQ(infoPlist(thin(magic64, {{0x19, {match(0x10000), match()}}}, plist)), "nothing");
}

TEST(MachO, RepeatedCommandOfSizeZeroIsDecidedOnce) {
  Command stuck{0x19, {{"__text", "__TEXT", 4, 0x100}}};
  stuck.writeZeroSize = true;
  EXPECT_EQ(infoPlist(thin(magic64, {stuck, {0x19, {match()}}}, plist, 0x400, 0xFFFFFFFF)),
            "nothing");
  stuck.sections = {match()};
  EXPECT_EQ(infoPlist(thin(magic64, {stuck}, plist, 0x400, 0xFFFFFFFF)), plist);
}

TEST(MachO, ARepeatedCommandUsesUpNothingOfTheSlicesBehindIt) {
  Command stuck{0x19, {{"__text", "__TEXT", 4, 0x100}}};
  stuck.writeZeroSize = true;
  const Buffer repeating = thin(magic64, {stuck}, "code", 0x400, 0xFFFFFFFF);
  EXPECT_EQ(infoPlist(fat({{cpuX86, repeating}, {cpuX86_64, thinWithPlist(plist)}})), plist);
}

TEST(MachO, SlicesThatContainThemselvesEnd) {
  constexpr std::uint32_t entries = 1000;
  Buffer image(8 + 20 * entries);
  put32(image, 0, 0xBEBAFECA);
  putBig32(image, 4, entries);
  for (std::uint32_t i = 0; i < entries; ++i) {
    putBig32(image, 8 + 20 * i, cpuX86_64);
    putBig32(image, 8 + 20 * i + 12, static_cast<std::uint32_t>(image.size()));
  }
  EXPECT_EQ(infoPlist(image), "nothing");
}

TEST(MachO, OverlappingCommandsEndInLinearTime) {
  // A command at every 24 bytes, each claiming 2^32 - 1 section records that run to the end of 8
  // MiB: a billion records.
  Buffer image(8U << 20);
  put32(image, 0, magic64);
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
  commands.push_back({0x19, {match(plist.size(), 0xF00000)}});
  EXPECT_EQ(infoPlist(thin(magic64, commands, plist, 0xF00000)), plist);
}

TEST(MachO, CutAtEveryByteYieldsTheWholeSectionOrNothing) {
  const Buffer whole =
      fat({{cpuARM64, thinWithPlist(otherPlist)}, {cpuX86, thinWithPlist(plist, magic32)}});
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    // An exact allocation, so that the sanitizer detects a read beyond it.
    const Buffer cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(infoPlist(cut), length == whole.size() ? plist : "nothing") << length;
  }
}

TEST(MachO, EveryBitFlipStaysWithinTheImage) {
  for (const auto& whole :
       {thinWithPlist(plist, magic64), thinWithPlist(plist, magic32),
        fat({{cpuX86, thinWithPlist(otherPlist)}, {cpuX86_64, thinWithPlist(plist)}})}) {
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
  const Buffer whole =
      fat({{cpuX86, thinWithPlist(otherPlist)}, {cpuX86_64, thinWithPlist(plist)}});
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
