// SPDX-License-Identifier: Apache-2.0

#include "platform/kit/RecentLogLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <ctime>
#include <thread>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/kit/KQHIDDeviceElementValue.h"

namespace platform {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

KQLogEntry entry(std::string_view message) {
  return {.level = 3,
          .function = "-[Thing go:]",
          .sourcePath = "Thing",
          .sourceLine = 42,
          .tags = nullptr,
          .message = message,
          .format = "%@"};
}

std::shared_ptr<NSData> bytes(std::string_view text) {
  return NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

TEST(RecentLogLines, KeepTimeSiteAndMessage) {
  RecentLogLines lines;
  lines.add(entry("first"));
  lines.add(entry("second"));
  const auto contents = lines.contents();
  ASSERT_EQ(contents.lines.size(), 2U);
  EXPECT_EQ(contents.dropped, 0U);
  EXPECT_THAT(contents.lines[0],
              MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z "
                           "<3> -\\[Thing go:\\]:42 first"));
  EXPECT_THAT(contents.lines[1], EndsWith(" second"));
}

TEST(RecentLogLines, KnowWhereEachComesFrom) {
  RecentLogLines lines;
  KQLogEntry first = entry("first");
  first.onlyNumber = 7;
  lines.add(first);
  const auto all = lines.lines();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].function, "-[Thing go:]");
  EXPECT_EQ(all[0].sourceLine, 42);
  EXPECT_EQ(all[0].format, "%@");
  EXPECT_EQ(all[0].onlyNumber, 7);
  EXPECT_EQ(all[0].text, lines.contents().lines.at(0));
  EXPECT_EQ(all[0].text.substr(0, all[0].time.size() + 1), all[0].time + " ");
}

TEST(RecentLogLines, TakeSoMuchMemoryAtMost) {
  EXPECT_EQ(RecentLogLines::kMaximumLines, 1000U);
  EXPECT_EQ(RecentLogLines::kMaximumBytes, 262'144U);
  EXPECT_EQ(RecentLogLines::kMaximumLineBytes, 4096U);
  EXPECT_EQ(RecentLogLines::kMaximumSiteBytes, 200U);
}

TEST(RecentLogLines, OfALongSiteNothingIsKept) {
  RecentLogLines lines;
  const std::string longest(RecentLogLines::kMaximumSiteBytes, 'f');
  const std::string longer = longest + "f";
  KQLogEntry line = entry("x");
  line.function = longest;
  line.format = longer;
  lines.add(line);
  EXPECT_EQ(lines.lines().at(0).function, longest);
  EXPECT_EQ(lines.lines().at(0).format, "");
}

/// The number that is kept for a line with these arguments.
template <class... Arguments>
std::optional<std::int64_t> numberOf(std::string_view format, const Arguments&... arguments) {
  auto& logger = KQLogger::sharedLogger();
  const auto before = logger.setSink(std::make_shared<KQLogSink>());
  logger.logAtLevel_function_sourcePath_sourceLine_tags_message(0, "f", "s", 1, nullptr, format,
                                                                arguments...);
  logger.setSink(before);
  return logger.recentLines().lines().back().onlyNumber;
}

TEST(RecentLogLines, KeepTheNumberOfALineThatHasOneArgument) {
  const auto error = NSError::errorWithDomain_code_userInfo(str("D"), -7, nullptr);
  EXPECT_EQ(numberOf("%d", -3), -3);
  EXPECT_EQ(numberOf("%lu", std::uint64_t{5}), 5);
  EXPECT_EQ(numberOf("%@", error), -7);
  EXPECT_EQ(numberOf("%@", nullptr), 0);
  EXPECT_EQ(numberOf("none"), std::nullopt);
  EXPECT_EQ(numberOf("%@", str("7")), std::nullopt);
  EXPECT_EQ(numberOf("%s", "7"), std::nullopt);
  EXPECT_EQ(numberOf("%@", bytes("\x07")), std::nullopt);
  EXPECT_EQ(numberOf("%d %d", 1, 2), std::nullopt);
}

TEST(RecentLogLines, DropTheOldestPastTheirNumberAndCountThem) {
  RecentLogLines lines;
  for (std::size_t i = 0; i < RecentLogLines::kMaximumLines; ++i) lines.add(entry("x"));
  EXPECT_EQ(lines.contents().dropped, 0U);
  lines.add(entry("y"));
  lines.add(entry("z"));
  const auto contents = lines.contents();
  EXPECT_EQ(contents.lines.size(), RecentLogLines::kMaximumLines);
  EXPECT_EQ(contents.dropped, 2U);
  EXPECT_THAT(contents.lines.back(), EndsWith(" z"));
  EXPECT_THAT(contents.lines.front(), EndsWith(" x"));
}

TEST(RecentLogLines, StayWithinTheirBytes) {
  RecentLogLines lines;
  const std::string text(3000, 'x');
  for (int i = 0; i < 500; ++i) lines.add(entry(text));
  const auto contents = lines.contents();
  std::size_t size = 0;
  for (const std::string& line : contents.lines) size += line.size();
  EXPECT_LE(size, RecentLogLines::kMaximumBytes);
  EXPECT_GT(size, RecentLogLines::kMaximumBytes - 3200);
  EXPECT_EQ(contents.lines.size() + contents.dropped, 500U);
}

TEST(RecentLogLines, CutALongLineBetweenCharacters) {
  RecentLogLines lines;
  std::string text;
  while (text.size() < (std::size_t{1} << 20)) text += "é€";
  lines.add(entry(text));
  const std::string line = lines.contents().lines.at(0);
  EXPECT_LT(line.size(), RecentLogLines::kMaximumLineBytes + 100);
  EXPECT_TRUE(isValidUTF8(line));
  EXPECT_THAT(line, EndsWith(" bytes more)"));
}

TEST(RecentLogLines, CutALongLineAtEveryByteOfACharacter) {
  for (std::size_t shift = 0; shift < 5; ++shift) {
    RecentLogLines lines;
    std::string text(shift, 'x');
    while (text.size() < 2 * RecentLogLines::kMaximumLineBytes) text += "é€";
    lines.add(entry(text));
    EXPECT_THAT(lines.contents().lines.at(0), Not(HasSubstr("\\x"))) << shift;
  }
}

constexpr std::size_t kTimeBytes = 28;  // including the blank after it

/// A message that makes the rendered line this many bytes long, not counting its time.
std::string messageOfLine(std::size_t size) {
  return std::string(size - renderLogEntry(entry("")).size(), 'x');
}

TEST(RecentLogLines, CutALineOfMoreThanItsBytesAndSayHowManyAreMissing) {
  RecentLogLines lines;
  const std::size_t most = 4096;
  lines.add(entry(messageOfLine(most)));
  lines.add(entry(messageOfLine(most + 1)));
  lines.add(entry(messageOfLine(most + 20)));
  const auto contents = lines.contents();
  EXPECT_EQ(contents.lines.at(0).size(), kTimeBytes + most);
  EXPECT_THAT(contents.lines.at(0), EndsWith("xxx"));
  EXPECT_THAT(contents.lines.at(1), EndsWith("x… (1 bytes more)"));
  EXPECT_THAT(contents.lines.at(2), EndsWith("x… (20 bytes more)"));
}

TEST(RecentLogLines, HoldExactlyTheirBytes) {
  RecentLogLines lines;
  const std::string message = messageOfLine(4096 - kTimeBytes);
  for (std::size_t i = 0; i < 64; ++i) lines.add(entry(message));
  EXPECT_EQ(lines.contents().dropped, 0U) << "256 KiB";
  lines.add(entry(""));
  EXPECT_EQ(lines.contents().dropped, 1U);
  EXPECT_EQ(lines.contents().lines.size(), 64U);
  for (std::size_t i = 0; i < 70; ++i) lines.add(entry(""));
  EXPECT_EQ(lines.contents().dropped, 1U) << "what was dropped has made room";
}

TEST(RecentLogLines, HoldAThousandLines) {
  RecentLogLines lines;
  for (int i = 0; i < 1001; ++i) lines.add(entry("x"));
  EXPECT_EQ(lines.contents().lines.size(), 1000U);
}

TEST(RecentLogLines, BeginWithTheTimeOfDay) {
  const auto now = [] {  // not std::time, which may lag by a tick
    const std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%FT%T", std::gmtime(&seconds));
    return std::string(text.data());
  };
  RecentLogLines lines;
  const std::string before = now();
  lines.add(entry("x"));
  const std::string after = now();
  const std::string time = lines.contents().lines.at(0).substr(0, before.size());
  EXPECT_LE(before, time);
  EXPECT_LE(time, after);
}

TEST(RecentLogLines, AreOfferedWithTheNumberOfThoseThatWereDropped) {
  const auto lines = std::make_shared<RecentLogLines>();
  RecentLogLinesModule module(lines);
  EXPECT_EQ(module.identifier()->UTF8String(), "KQRecentLogLines");
  EXPECT_EQ(module.name()->UTF8String(), "Recent log lines");
  const auto offered = [&] {
    std::string text;
    module.provideFilesWithCompletionHandler([&](const auto&, const auto& files) {
      EXPECT_EQ(files.at(0)->localizedDescription()->UTF8String(),
                "The last lines that this process logged");
      EXPECT_EQ(files.at(0)->categoryName()->UTF8String(), "Log");
      files.at(0)->source()(files.at(0), [&](auto, auto, const auto& data, bool flag) {
        EXPECT_FALSE(flag);
        text.assign(reinterpret_cast<const char*>(data->bytes()), data->length());
      });
    });
    return text;
  };
  EXPECT_EQ(offered(), "");
  for (int i = 0; i < 1000; ++i) lines->add(entry("x"));
  EXPECT_THAT(offered(), Not(HasSubstr("dropped")));
  lines->add(entry("x"));
  EXPECT_TRUE(offered().starts_with("(1 older lines were dropped)\n")) << offered().substr(0, 40);
  EXPECT_THAT(offered(), EndsWith(" x\n"));
}

TEST(RecentLogLines, AreEachOneLine) {
  RecentLogLines lines;
  lines.add(entry("a\nb\x1b[31m\x7f"));
  lines.add(entry("bad \xff"));
  lines.add(entry("\u202egnp.\u2028x"));
  EXPECT_THAT(lines.contents().lines.at(0), EndsWith(" a\\x0ab\\x1b[31m\\x7f"));
  EXPECT_THAT(lines.contents().lines.at(1), EndsWith(" bad \\xff"));
  EXPECT_THAT(lines.contents().lines.at(2), EndsWith(" \\u202egnp.\\u2028x"));
}

TEST(RecentLogLines, LeaveInputOutUnlessAskedToKeepIt) {
  RecentLogLines lines;
  KQLogEntry input = entry("Received: {length = 4, bytes = 0x4d41524b}");
  input.format = "Received: %@";
  input.showsInput = true;
  lines.add(input);
  EXPECT_THAT(lines.contents().lines.back(), EndsWith(" Received: %@ (input left out)"));
  lines.setKeepsInput(true);
  lines.add(input);
  EXPECT_THAT(lines.contents().lines.back(), EndsWith("0x4d41524b}"));
  lines.setKeepsInput(false);
  lines.add(input);
  EXPECT_THAT(lines.contents().lines.back(), Not(HasSubstr("4d41524b")));
}

TEST(RecentLogLines, OfSeveralThreadsAreAllCounted) {
  RecentLogLines lines;
  const auto work = [&lines] {
    for (int i = 0; i < 2000; ++i) lines.add(entry("x"));
  };
  std::thread first(work);
  std::thread second(work);
  for (int i = 0; i < 100; ++i)
    EXPECT_LE(lines.contents().lines.size(), RecentLogLines::kMaximumLines);
  first.join();
  second.join();
  const auto contents = lines.contents();
  EXPECT_EQ(contents.lines.size() + contents.dropped, 4000U);
}

// ---- Through the shared logger

class SharedRecentLogLines : public testing::Test {
 protected:
  SharedRecentLogLines() {
    KQLogger::sharedLogger().setSink(std::make_shared<KQLogSink>(
        [this](const KQLogEntry& sent) { shown.push_back(sent.showsInput); }));
  }
  ~SharedRecentLogLines() override { KQLogger::sharedLogger().setSink(nullptr); }

  template <class... Args>
  static std::string log(std::string_view format, const Args&... args) {
    KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
        0, "f", "p", 1, nullptr, format, args...);
    return KQLogger::sharedLogger().recentLines().contents().lines.back();
  }

  std::vector<bool> shown;
};

TEST_F(SharedRecentLogLines, KnowDataAndElementValuesForInput) {
  const auto value = KQHIDDeviceElementValue::elementValue(HIDElementValueRecord());
  const auto array = NSArray::arrayWithObjects({str("a"), bytes("MARK")});
  const auto dictionary = NSDictionary::dictionaryWithEntries({{str("key"), array}});
  const auto error = NSError::errorWithDomain_code_userInfo(str("D"), 5, dictionary);
  EXPECT_THAT(log("Received for %u: %@", 3U, bytes("MARK")),
              EndsWith(" Received for %u: %@ (input left out)"));
  EXPECT_THAT(log("value %@", std::static_pointer_cast<NSObject>(value)),
              EndsWith(" value %@ (input left out)"));
  EXPECT_THAT(log("array %@", array), EndsWith(" array %@ (input left out)"));
  EXPECT_THAT(log("error %@", error), EndsWith(" error %@ (input left out)"));
  EXPECT_EQ(shown, std::vector<bool>(4, true));
}

TEST_F(SharedRecentLogLines, KeepEverythingElse) {
  const auto error = NSError::errorWithDomain_code_userInfo(str("D"), 5, nullptr);
  EXPECT_THAT(log("error %@, %d, %@, %@", error, 7, str("text"), nullptr),
              EndsWith(" error Error Domain=D Code=5 \"(null)\", 7, text, (null)"));
  EXPECT_EQ(shown, std::vector<bool>(1, false));
}

TEST_F(SharedRecentLogLines, LookEightContainersDeep) {
  std::shared_ptr<NSObject> object = str("a");
  for (int i = 0; i < 4; ++i) object = NSArray::arrayWithObjects({object});
  for (int i = 0; i < 3; ++i) object = NSDictionary::dictionaryWithEntries({{str("k"), object}});
  const auto info = NSDictionary::dictionaryWithEntries({{str("k"), object}});
  log("%@", info);
  log("%@", NSArray::arrayWithObjects({info}));
  EXPECT_EQ(shown, (std::vector<bool>{false, true}));
}

TEST_F(SharedRecentLogLines, CountAnErrorAsOneContainer) {
  std::shared_ptr<NSObject> object = str("a");
  for (int i = 0; i < 6; ++i) object = NSArray::arrayWithObjects({object});
  const auto info = NSDictionary::dictionaryWithEntries({{str("k"), object}});
  const auto error = NSError::errorWithDomain_code_userInfo(str("D"), 5, info);
  log("%@", error);
  log("%@", NSArray::arrayWithObjects({error}));
  EXPECT_EQ(shown, (std::vector<bool>{false, true}));
}

TEST_F(SharedRecentLogLines, FindNothingInAnErrorWithoutUserInfoHoweverDeepItIs) {
  std::shared_ptr<NSObject> object = NSError::errorWithDomain_code_userInfo(str("D"), 5, nullptr);
  for (int i = 0; i < 8; ++i) object = NSArray::arrayWithObjects({object});
  log("%@", object);
  EXPECT_EQ(shown, std::vector<bool>{false});
}

TEST_F(SharedRecentLogLines, KnowInputInAKeyToo) {
  log("%@", NSDictionary::dictionaryWithEntries({{bytes("MARK"), str("value")}}));
  log("%@", NSDictionary::dictionaryWithEntries({{str("key"), bytes("MARK")}}));
  log("%@", NSDictionary::dictionaryWithEntries({{str("key"), str("value")}}));
  EXPECT_EQ(shown, (std::vector<bool>{true, true, false}));
}

TEST_F(SharedRecentLogLines, CountWhatIsNestedTooDeepAsInput) {
  std::shared_ptr<NSArray> array = NSArray::arrayWithObjects({str("a")});
  for (int i = 0; i < 20; ++i) array = NSArray::arrayWithObjects({array});
  EXPECT_THAT(log("%@", array), EndsWith(" %@ (input left out)"));
}

TEST_F(SharedRecentLogLines, AreKeptBeforeTheSinkRunsAndMayBeReadThere) {
  std::vector<std::string> seen;
  KQLogger::sharedLogger().setSink(std::make_shared<KQLogSink>([&](const KQLogEntry&) {
    seen.push_back(KQLogger::sharedLogger().recentLines().contents().lines.back());
    throw 5;
  }));
  log("from %s", "here");
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_THAT(seen[0], EndsWith(" <0> f:1 from here"));
}

TEST_F(SharedRecentLogLines, AreOfferedByAModuleThatIsThereFromTheStart) {
  log("for the report");
  const auto modules = KQLogger::sharedLogger().modules();
  ASSERT_FALSE(modules.empty());
  EXPECT_EQ(modules[0]->identifier()->UTF8String(), kRecentLogLinesIdentifier);
  auto* const provider = dynamic_cast<KQLogModuleFileProvider*>(modules[0].get());
  ASSERT_NE(provider, nullptr);
  std::vector<std::shared_ptr<KQLogFile>> files;
  provider->provideFilesWithCompletionHandler([&](const auto& error, const auto& offered) {
    EXPECT_EQ(error, nullptr);
    files = offered;
  });
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(files[0]->name()->UTF8String(), "recent.log");
  std::string text;
  files[0]->source()(files[0], [&](const auto& error, const auto& url, const auto& data, bool) {
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(url, nullptr);
    text.assign(reinterpret_cast<const char*>(data->bytes()), data->length());
  });
  EXPECT_THAT(text, EndsWith(" <0> f:1 for the report\n"));
}

}  // namespace
}  // namespace platform
