// SPDX-License-Identifier: Apache-2.0

#include "jobd/HelperImage.h"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <span>

#include "helper-install/MachO.h"
#include "platform/services/ServiceError.h"
#include "tests/support/HelperImages.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testsupport::ImagePlan;
using testsupport::TemporaryDirectory;

std::vector<std::uint8_t> image(const ImagePlan& plan) {
  const TemporaryDirectory directory;
  const auto path = testsupport::makeImage(WLHID_MKIMAGE, plan, directory.path() / "image");
  const std::string text = testsupport::readFile(path);
  return {text.begin(), text.end()};
}

std::string refusal(std::span<const std::uint8_t> bytes, std::string_view label) {
  try {
    (void)jobd::parseHelperImage(bytes, label);
    return "";
  } catch (const platform::ServiceError& error) {
    EXPECT_EQ(error.code(), platform::ServiceErrorCode::InvalidImage);
    return error.what();
  }
}

/// Replaces the first occurrence of `from` with `to`, which has the same length.
std::vector<std::uint8_t> patched(std::vector<std::uint8_t> bytes, std::string_view from,
                                  std::string_view to) {
  EXPECT_EQ(from.size(), to.size());
  const auto at = std::search(bytes.begin(), bytes.end(), from.begin(), from.end());
  EXPECT_NE(at, bytes.end());
  if (at != bytes.end()) std::copy(to.begin(), to.end(), at);
  return bytes;
}

TEST(HelperImage, IsWhatTheToolMade) {
  ImagePlan plan{"com.x", "1.2.3", WLHID_HELPER_PROGRAM, {"com.x", "com.x.two"}};
  const auto bytes = image(plan);
  const auto helper = jobd::parseHelperImage(bytes, "com.x");
  EXPECT_EQ(helper.label, "com.x");
  EXPECT_EQ(helper.version, "1.2.3");
  EXPECT_THAT(helper.services, ElementsAre("com.x", "com.x.two"));
  const std::string program = testsupport::readFile(WLHID_HELPER_PROGRAM);
  EXPECT_EQ(std::string(helper.program.begin(), helper.program.end()), program);
}

TEST(HelperImage, IsOfItsProgramsProcessorWhateverItsByteOrder) {
  const TemporaryDirectory directory;
  const auto path = directory.path() / "program";
  for (const bool bigEndian : {false, true}) {
    std::string program(ELFMAG);
    program.resize(sizeof(Elf64_Ehdr));
    program[EI_CLASS] = ELFCLASS64;
    program[EI_DATA] = static_cast<char>(bigEndian ? ELFDATA2MSB : ELFDATA2LSB);
    program[offsetof(Elf64_Ehdr, e_machine) + (bigEndian ? 1 : 0)] = static_cast<char>(EM_AARCH64);
    testsupport::writeFile(path, program);
    const auto bytes = image({"com.x", "1", path.string(), {}});
    EXPECT_THAT(std::span(bytes).subspan(4, 4), ElementsAre(0x0C, 0, 0, 1));
  }
}

TEST(HelperImage, VersionsMayHoldMarkup) {
  EXPECT_EQ(
      jobd::parseHelperImage(image({"com.x", "1<2>&3", WLHID_HELPER_PROGRAM, {}}), "com.x").version,
      "1<2>&3");
}

TEST(HelperImage, OfAnotherLabelIsRefused) {
  const auto bytes = image({"com.x", "1", WLHID_HELPER_PROGRAM, {}});
  EXPECT_EQ(refusal(bytes, "com.y"), "the helper's CFBundleIdentifier is \"com.x\", not \"com.y\"");
}

TEST(HelperImage, WithoutItsPartsIsRefused) {
  const auto bytes = image({"com.x", "1", WLHID_HELPER_PROGRAM, {}});
  EXPECT_THAT(refusal({}, "com.x"), HasSubstr("no section __TEXT,__info_plist"));
  EXPECT_THAT(refusal(patched(bytes, "__info_plist", "__info_plisT"), "com.x"),
              HasSubstr("no section __TEXT,__info_plist"));
  EXPECT_THAT(refusal(patched(bytes, "__launchd_plist", "__launchd_plisT"), "com.x"),
              HasSubstr("no section __TEXT,__launchd_plist"));
  EXPECT_THAT(refusal(patched(bytes, "__program", "__prograM"), "com.x"),
              HasSubstr("no section __ELF,__program"));
  EXPECT_THAT(refusal(patched(bytes, "CFBundleVersion", "CFBundleVersioN"), "com.x"),
              HasSubstr("no CFBundleVersion"));
  EXPECT_THAT(refusal(patched(bytes, "MachServices", "MachServiceS"), "com.x"),
              HasSubstr("no MachServices"));
  EXPECT_THAT(refusal(patched(bytes, "<key>Label</key>", "<key>LabeL</key>"), "com.x"),
              HasSubstr("Label is \"\""));
  EXPECT_THAT(refusal(patched(bytes, "<plist", "<plisT"), "com.x"),
              HasSubstr("not a property list"));
}

TEST(HelperImage, WithAProgramOfAnotherMachineIsRefused) {
  auto bytes = image({"com.x", "1", WLHID_HELPER_PROGRAM, {}});
  const auto program = findMachOSection(bytes, "__ELF", "__program");
  ASSERT_TRUE(program);
  auto* const header = bytes.data() + (program->data() - bytes.data());
  header[18] ^= 0xFF;
  EXPECT_THAT(refusal(bytes, "com.x"), HasSubstr("another kind of processor"));
  header[18] ^= 0xFF;
  header[4] = 1;
  EXPECT_THAT(refusal(bytes, "com.x"), HasSubstr("not a 64-bit ELF"));
  header[4] = 2;
  header[0] = 'x';
  EXPECT_THAT(refusal(bytes, "com.x"), HasSubstr("not a 64-bit ELF"));
}

TEST(HelperImage, CutShortAnywhereIsRefused) {
  const auto bytes = image({"com.x", "1", WLHID_HELPER_PROGRAM, {}});
  for (std::size_t length = 0; length < bytes.size(); length += length < 2000 ? 1 : 997) {
    EXPECT_NE(refusal(std::span(bytes).first(length), "com.x"), "") << length;
  }
}

TEST(HelperImage, ToolRefusesAFileThatIsNotAProgram) {
  const TemporaryDirectory directory;
  testsupport::writeFile(directory.path() / "text", "#!/bin/sh\n");
  EXPECT_EQ(testsupport::runProgram({WLHID_MKIMAGE, "--label", "com.x", "--version", "1",
                                     "--program", (directory.path() / "text").string(), "--output",
                                     (directory.path() / "o").string()}),
            1);
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "o"));
}

TEST(HelperImage, AProgramNeedsAWholeHeader) {
  const TemporaryDirectory directory;
  for (const std::size_t size : {std::size_t{64}, std::size_t{63}}) {
    auto bytes = image({"com.x", "1", WLHID_HELPER_PROGRAM, {}});
    // The section's size is 40 bytes after its name, little-endian.
    const std::string_view name = "__program";
    const auto at = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
    ASSERT_NE(at, bytes.end());
    for (std::size_t i = 0; i < 8; ++i)
      at[40 + static_cast<std::ptrdiff_t>(i)] = static_cast<std::uint8_t>(size >> 8 * i);
    EXPECT_EQ(refusal(bytes, "com.x"), size == 64 ? "" : "the helper's program is too short");
  }
}

TEST(HelperImage, AForeignLabelIsSaidInPart) {
  const std::string label = "com." + std::string(196, 'x');
  const auto bytes = image({label, "1", WLHID_HELPER_PROGRAM, {}});
  EXPECT_EQ(refusal(bytes, "com.y"),
            "the helper's CFBundleIdentifier is \"" + label + "\", not \"com.y\"");
  const auto at = std::search(bytes.begin(), bytes.end(), label.begin(), label.end());
  ASSERT_NE(at, bytes.end());
  EXPECT_EQ(refusal(patched(bytes, label.substr(0, 3), "\nom"), "com.y").find('\n'),
            std::string::npos);
}

TEST(HelperImage, TheProgramAloneCanBeTaken) {
  const auto bytes = image({"com.x", "1", WLHID_HELPER_PROGRAM, {}});
  EXPECT_EQ(jobd::programOfImage(bytes).size(), testsupport::readFile(WLHID_HELPER_PROGRAM).size());
  EXPECT_THROW((void)jobd::programOfImage({}), platform::ServiceError);
}

}  // namespace
