// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/TextFile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "platform/foundation/ForwardingFoundationProvider.h"
#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/GrowingData.h"
#include "platform/foundation/UTF8Validator.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform {
namespace {

using testsupport::TemporaryDirectory;
using testsupport::writeFile;

// ---- UTF8Validator

/// The number of bytes of the well-formed sequence at the start of `bytes`, or 0.
std::size_t sequenceLength(std::string_view bytes) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const auto continues = [&](std::size_t i) { return i < bytes.size() && (at(i) & 0xC0) == 0x80; };
  const unsigned lead = at(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;
  if (!continues(1)) return 0;
  if (lead < 0xE0) return 2;
  if (!continues(2)) return 0;
  if (lead == 0xE0 && at(1) < 0xA0) return 0;
  if (lead == 0xED && at(1) > 0x9F) return 0;
  if (lead < 0xF0) return 3;
  if (!continues(3)) return 0;
  if (lead == 0xF0 && at(1) < 0x90) return 0;
  if (lead == 0xF4 && at(1) > 0x8F) return 0;
  return lead <= 0xF4 ? 4 : 0;
}

/// As the standard defines it, one character at a time.
bool isWellFormed(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = sequenceLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

bool isValidInPieces(std::string_view text, std::size_t length) {
  UTF8Validator validator;
  bool valid = true;
  for (std::size_t at = 0; at < text.size(); at += length)
    valid = validator.accept(text.substr(at, length)) && valid;
  EXPECT_EQ(validator.accept({}), valid) << "what was refused stays refused";
  return valid && validator.isComplete();
}

TEST(UTF8Validator, AnswersForEveryPairAndTripleOfBytesAtABorderAsForTheWhole) {
  const std::string around(200, 'a');
  for (unsigned first = 0x7F; first < 0x100; ++first) {
    for (unsigned second = 0; second < 0x100; second += second < 0x7F ? 0x7F : 1) {
      for (const unsigned third : {0x00U, 0x41U, 0x7FU, 0x80U, 0xBFU, 0xC0U, 0xFFU}) {
        const std::string bytes = {static_cast<char>(first), static_cast<char>(second),
                                   static_cast<char>(third), '\x80'};
        for (std::size_t size = 1; size <= 4; ++size) {
          const auto part = bytes.substr(0, size);
          const bool expected = isWellFormed(part);
          ASSERT_EQ(isValidInPieces(part, 1), expected) << testing::PrintToString(part);
          ASSERT_EQ(isValidInPieces(around + part, 201), expected) << testing::PrintToString(part);
        }
      }
    }
  }
}

TEST(UTF8Validator, AnswersAsForTheWholeOnRandomText) {
  std::mt19937 random(11);
  const std::vector<std::string> parts = {std::string(130, 'x'),
                                          "a",
                                          "é",
                                          "€",
                                          "😀",
                                          "\xEF\xBF\xBF",
                                          "\xF4\x8F\xBF\xBF",
                                          "\xC0",
                                          "\x80",
                                          "\xED\xA0\x80",
                                          "\xE0\x80\x80",
                                          "\xF0\x82"};
  std::size_t valid = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    const std::size_t choices = round % 2 == 0 ? 7 : parts.size();
    for (auto count = random() % 8; count > 0; --count) text += parts[random() % choices];
    const bool expected = isWellFormed(text);
    valid += expected ? 1 : 0;
    ASSERT_EQ(isValidInPieces(text, 1 + random() % 140), expected) << testing::PrintToString(text);
  }
  EXPECT_GT(valid, 10000U);
  EXPECT_LT(valid, 19000U);
}

// ---- GrowingData

std::string contents(const NSData& data) {
  return {reinterpret_cast<const char*>(data.bytes()), data.length()};
}

TEST(GrowingData, BecomesDataWithAllThatWasAppended) {
  GrowingData data;
  std::string expected;
  // Beyond the sizes at which the pages move, with pieces that cross every boundary.
  while (expected.size() < std::size_t{70} * 1024 * 1024) {
    const std::string piece(1 + expected.size() % 1000003,
                            static_cast<char>('a' + expected.size() % 26));
    data.append(piece);
    expected += piece;
  }
  EXPECT_EQ(data.size(), expected.size());
  EXPECT_TRUE(data.view() == expected);
  const auto result = data.takeData();
  EXPECT_TRUE(contents(*result) == expected);
  EXPECT_EQ(result->className(), "NSData");
  EXPECT_EQ(data.size(), 0U);
}

TEST(GrowingData, IsEmptyAgainAfterItWasTaken) {
  GrowingData data;
  data.append("one");
  const auto one = data.takeData();
  EXPECT_EQ(data.takeData()->length(), 0U);
  data.append("two");
  const auto two = data.takeData();
  EXPECT_EQ(contents(*one), "one");
  EXPECT_EQ(contents(*two), "two");
}

TEST(GrowingData, TruncatesAndGoesOnAfterWhatIsLeft) {
  GrowingData data;
  const std::string large(std::size_t{8} * 1024 * 1024, 'x');
  data.append("abc");
  data.append(large);
  data.truncate(large.size() + 3);
  EXPECT_EQ(data.size(), large.size() + 3);
  data.truncate(2);
  data.append("d");
  data.append(large);
  EXPECT_EQ(data.size(), large.size() + 3);
  EXPECT_TRUE(data.view() == "abd" + large);
  data.truncate(0);
  EXPECT_EQ(data.takeData()->length(), 0U);
}

/// In KiB, of all mappings: in an emulator, the process's totals count the emulator's own memory
/// too.
std::size_t addressSpace() {
  std::ifstream maps("/proc/self/maps");
  std::size_t bytes = 0;
  for (std::string line; std::getline(maps, line);) {
    std::size_t dash = 0;
    const auto begin = std::stoull(line, &dash, 16);
    bytes += std::stoull(line.substr(dash + 1), nullptr, 16) - begin;
  }
  return bytes / 1024;
}

/// In KiB.
std::size_t residentMemory() {
  std::size_t mapped = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> mapped >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

TEST(GrowingData, ReservesMoreEachTimeAndKeepsNoMoreThanItNeeds) {
  constexpr std::size_t kMiB = 1024;
  const std::string large(std::size_t{65} * 1024 * 1024, 'x');
  for (const bool isWarm : {false, true}) {  // the first time the allocator grows as well
    GrowingData data;
    const std::size_t before = addressSpace();
    data.append("abc");
    const std::size_t small = addressSpace() - before;
    data.append(std::string_view(large).substr(0, std::size_t{256} * 1024 - 3));
    const std::size_t full = addressSpace() - before;
    data.append("d");
    const std::size_t second = addressSpace() - before;
    data.append(large);
    const std::size_t third = addressSpace() - before;
    const auto taken = data.takeData();
    const std::size_t kept = addressSpace() - before;
    if (!isWarm) continue;
    EXPECT_EQ(small, 256U);
    EXPECT_EQ(full, 256U);
    EXPECT_EQ(second, 64 * kMiB);
    EXPECT_EQ(third, 1024 * kMiB);
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    EXPECT_EQ(kept, (taken->length() + page - 1) / page * page / 1024);
  }
}

TEST(GrowingData, GivesBackThePagesThatItTruncates) {
  GrowingData data;
  data.append(std::string(std::size_t{32} * 1024 * 1024, 'x'));
  const std::size_t before = residentMemory();
  data.truncate(5);
  EXPECT_LT(residentMemory() + std::size_t{24} * 1024, before);
  EXPECT_EQ(data.view(), "xxxxx");
}

TEST(GrowingData, GivesBackAllThatItMapped) {
  const std::string large(std::size_t{33} * 1024 * 1024, 'x');
  const auto grow = [&](bool take) {
    GrowingData data;
    data.append("first");
    for (int i = 0; i < 2; ++i) data.append(large);
    const auto taken = take ? data.takeData() : nullptr;
    EXPECT_EQ(taken ? taken->length() : data.size(), 2 * large.size() + 5);
  };
  grow(true);
  grow(false);
  const std::size_t before = addressSpace();
  for (int i = 0; i < 4; ++i) grow(i % 2 == 0);
  EXPECT_EQ(addressSpace(), before);
}

TEST(GrowingData, KeepsWhatItHasWhenThereIsNoMoreMemory) {
  GrowingData data;
  data.append("kept");
  const std::string_view impossible(data.view().data(), std::size_t{1} << 62);
  EXPECT_THROW(data.append(impossible), std::bad_alloc);
  EXPECT_EQ(contents(*data.takeData()), "kept");
}

// ---- Files

std::shared_ptr<NSURL> fileURL(const std::filesystem::path& path) {
  return NSURL::fileURLWithPath(NSString::stringWithUTF8(path.string()));
}

TEST(TextFile, IsHandedOutWholeAndInOrder) {
  const TemporaryDirectory directory;
  const auto path = directory.path() / "text";
  std::string expected;
  for (int i = 0; expected.size() < 1000000; ++i) expected += "líne " + std::to_string(i) + "\n";
  writeFile(path, expected);
  std::string text;
  EXPECT_EQ(readUTF8TextFile(fileURL(path), [&](std::string_view piece) { text += piece; }),
            nullptr);
  EXPECT_TRUE(text == expected);
}

/// Large enough to be read ahead.
std::string longText() {
  std::string text;
  for (int i = 0; text.size() < 10'000'000; ++i) text += "líne " + std::to_string(i) + "\n";
  return text;
}

TEST(TextFile, OfManyPiecesIsHandedOutWholeAndInOrder) {
  const TemporaryDirectory directory;
  const auto path = directory.path() / "text";
  const std::string expected = longText();
  writeFile(path, expected);
  std::string text;
  EXPECT_EQ(readUTF8TextFile(fileURL(path), [&](std::string_view piece) { text += piece; }),
            nullptr);
  EXPECT_TRUE(text == expected);
}

TEST(TextFile, ThatEndsBadlyIsAnErrorHoweverMuchWasGoodBefore) {
  const TemporaryDirectory directory;
  const auto path = directory.path() / "text";
  for (const std::string end : {"\xFF", "\xC3"}) {
    writeFile(path, longText() + end);
    const auto error = readUTF8TextFile(fileURL(path), [](std::string_view) {});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), NSFileReadInapplicableStringEncodingError);
  }
}

TEST(TextFile, LetsOutWhatItsTakerThrows) {
  const TemporaryDirectory directory;
  const auto path = directory.path() / "text";
  writeFile(path, longText());
  EXPECT_THROW((void)readUTF8TextFile(fileURL(path), [](std::string_view) { throw 1; }), int);
}

TEST(TextFile, ErrorsSayWhichFileAndWhy) {
  const auto error = readUTF8TextFile(NSURL::fileURLWithPath(str("/missing/file")),
                                      [](std::string_view) { FAIL() << "there is nothing"; });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain()->UTF8String(), NSCocoaErrorDomain);
  EXPECT_EQ(error->code(), NSFileReadNoSuchFileError);
  EXPECT_EQ(descriptionOf(error->userInfo()->objectForKey(NSFilePathErrorKey)), "/missing/file");
  EXPECT_EQ(descriptionOf(error->userInfo()->objectForKey(NSLocalizedDescriptionKey)),
            "Cannot read /missing/file: No such file or directory");
  const auto underlying =
      objectCast<NSError>(error->userInfo()->objectForKey(NSUnderlyingErrorKey));
  ASSERT_NE(underlying, nullptr);
  EXPECT_EQ(underlying->domain()->UTF8String(), NSPOSIXErrorDomain);
  EXPECT_EQ(underlying->code(), ENOENT);
}

TEST(TextFile, APathWithNULIsNoFile) {
  const auto error =
      readUTF8TextFile(NSURL::fileURLWithPath(NSString::stringWithUTF8({"/etc/hosts\0x", 12})),
                       [](std::string_view) { FAIL() << "there is nothing"; });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), NSFileReadNoSuchFileError);
}

/// A provider that does not implement reading in pieces.
class WholeFiles final : public FoundationProvider {
 public:
  std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path) override {
    if (path->UTF8String() != "/there") return nullptr;
    const std::string text = "text";
    return NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }
  std::shared_ptr<NSString> mainBundlePath() override { return nullptr; }
  std::shared_ptr<NSObject> propertyListWithData(const std::shared_ptr<NSData>&,
                                                 NSPropertyListFormat*,
                                                 std::shared_ptr<NSError>*) override {
    return nullptr;
  }
  std::shared_ptr<NSNotificationCenter> defaultCenter() override { return nullptr; }
  void log(std::string_view) override {}
};

/// A provider on which every file fails in the same way.
class FaultyFiles final : public ForwardingFoundationProvider {
 public:
  explicit FaultyFiles(int fault) : fault_(fault) {}
  int readFile(const std::shared_ptr<NSString>&, const PieceHandler& look,
               const PieceHandler&) override {
    (void)look("\xFF");  // the read error takes precedence over invalid text
    return fault_;
  }

 private:
  const int fault_;
};

TEST(TextFile, FaultsOfTheSystemHaveCodesOfTheirOwn) {
  for (const auto& [fault, code] : std::vector<std::pair<int, std::int64_t>>{
           {ENOENT, 260}, {EACCES, 257}, {EPERM, 257}, {EIO, 256}, {EISDIR, 256}}) {
    const auto before = foundationProvider().exchange(std::make_shared<FaultyFiles>(fault));
    const auto error = readUTF8TextFile(NSURL::fileURLWithPath(str("/f")), [](std::string_view) {});
    foundationProvider().exchange(before);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), code);
    const auto system =
        NSError::errorWithDomain_code_userInfo(str("NSPOSIXErrorDomain"), fault, nullptr)
            ->localizedDescription();
    EXPECT_EQ(error->localizedDescription()->UTF8String(),
              "Cannot read /f: " + system->UTF8String());
    const auto underlying =
        objectCast<NSError>(error->userInfo()->objectForKey("NSUnderlyingError"));
    ASSERT_NE(underlying, nullptr);
    EXPECT_EQ(underlying->code(), fault);
    EXPECT_TRUE(underlying->localizedDescription()->isEqual(system));
  }
}

TEST(TextFile, FaultsOfTheTextHaveNoUnderlyingError) {
  const TemporaryDirectory directory;
  const auto path = directory.path() / "text";
  writeFile(path, "a\xC3");
  const auto error = readUTF8TextFile(fileURL(path), [](std::string_view) {});
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), 261);
  EXPECT_EQ(error->localizedDescription()->UTF8String(),
            "Cannot read " + path.string() + ": the text is not UTF-8");
  EXPECT_EQ(descriptionOf(error->userInfo()->objectForKey("NSFilePath")), path.string());
  EXPECT_EQ(error->userInfo()->objectForKey("NSUnderlyingError"), nullptr);
}

TEST(TextFile, WithoutAPathTheErrorNamesNone) {
  const auto error = readUTF8TextFile(NSURL::URLWithString(str("https://example.org/a")),
                                      [](std::string_view) { FAIL() << "there is nothing"; });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), 256);
  EXPECT_EQ(error->localizedDescription()->UTF8String(),
            "Cannot read the file: not the URL of a file");
  EXPECT_EQ(error->userInfo()->count(), 1U);
  EXPECT_NE(readUTF8TextFile(nullptr, [](std::string_view) {}), nullptr);
}

TEST(TextFile, ComesFromTheProviderInPlace) {
  const auto machine = foundationProvider().exchange(std::make_shared<WholeFiles>());
  std::string text;
  const auto take = [&](std::string_view piece) { text += piece; };
  const auto there = readUTF8TextFile(NSURL::fileURLWithPath(str("/there")), take);
  const auto missing = readUTF8TextFile(NSURL::fileURLWithPath(str("/missing")), take);
  foundationProvider().exchange(machine);
  EXPECT_EQ(there, nullptr);
  EXPECT_EQ(text, "text");
  ASSERT_NE(missing, nullptr);
  EXPECT_EQ(missing->code(), NSFileReadNoSuchFileError);
}

}  // namespace
}  // namespace platform
