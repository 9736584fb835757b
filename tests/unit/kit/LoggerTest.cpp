// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "platform/foundation/NSData.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQLogger.h"
#include "tests/support/Emulation.h"
#include "tests/support/ScopedVariable.h"

namespace platform {
namespace {

struct Module final : KQLogModule {
  Module(std::shared_ptr<NSString> identifier, std::shared_ptr<NSString> name)
      : KQLogModule(std::move(identifier), std::move(name)) {}
};

std::shared_ptr<NSArray> tags(std::vector<std::shared_ptr<NSObject>> list) {
  return NSArray::arrayWithObjects(std::move(list));
}

std::shared_ptr<KQLogSink> sink(KQLogSink function) {
  return std::make_shared<KQLogSink>(std::move(function));
}

template <class... Args>
void log(std::string_view format, const Args&... args) {
  KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
      3, "-[Thing go:]", "Thing", 42, tags({str("Thing")}), format, args...);
}

class LoggerTest : public testing::Test {
 protected:
  ~LoggerTest() override { KQLogger::sharedLogger().setSink(nullptr); }
};

// The level is read only once, on first use, so each case runs in a new process of this program.
TEST(LogLevelDeathTest, StartsAsTheEnvironmentSays) {
  if (!testsupport::runsProgramsOfThisProcessor())
    GTEST_SKIP() << "this program, executed again, does not run here";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::vector<std::pair<const char*, std::uint64_t>> cases{
      {nullptr, 4},
      {"0", 0},
      {"7", 7},
      {"18446744073709551615", UINT64_MAX},
      {"18446744073709551616", 4},
      {"-1", 4},
      {"3x", 4},
      {" 3", 4},
      {"", 4}};
  for (const auto& [given, expected] : cases) {
    const testsupport::ScopedVariable variable("KQ_LOG_LEVEL", given);
    EXPECT_EXIT(std::exit(KQLogger::logLevel() == expected ? 0 : 1), testing::ExitedWithCode(0), "")
        << (given == nullptr ? "nothing" : given);
  }
}

TEST(LogLevel, IsWhatWasSetLast) {
  const std::uint64_t before = KQLogger::logLevel();
  for (const std::uint64_t level : {std::uint64_t{0}, std::uint64_t{3}, UINT64_MAX}) {
    KQLogger::setLogLevel(level);
    EXPECT_EQ(KQLogger::logLevel(), level);
  }
  KQLogger::setLogLevel(before);
}

TEST_F(LoggerTest, HandsALineToTheSinkWhateverTheLevel) {
  std::vector<std::string> lines;
  KQLogger::sharedLogger().setSink(sink([&](const KQLogEntry& entry) {
    lines.push_back(renderLogEntry(entry));
    EXPECT_EQ(entry.level, 3U);
    EXPECT_EQ(entry.function, "-[Thing go:]");
    EXPECT_EQ(entry.sourcePath, "Thing");
    EXPECT_EQ(entry.sourceLine, 42);
    EXPECT_TRUE(entry.tags->isEqual(tags({str("Thing")})));
    EXPECT_EQ(entry.format, "status %lu of %@");
    EXPECT_EQ(entry.message, "status 4 of device");
  }));
  const std::uint64_t before = KQLogger::logLevel();
  KQLogger::setLogLevel(UINT64_MAX);
  log("status %lu of %@", std::uint64_t{4}, str("device"));
  KQLogger::setLogLevel(before);
  EXPECT_EQ(lines, std::vector<std::string>{"<3> -[Thing go:]:42 [Thing] status 4 of device"});
}

TEST_F(LoggerTest, RendersTagsOrNone) {
  const KQLogEntry entry{.level = 0,
                         .function = "f",
                         .sourcePath = "p",
                         .sourceLine = 1,
                         .tags = nullptr,
                         .message = "m",
                         .format = "m"};
  EXPECT_EQ(renderLogEntry(entry), "<0> f:1 m");
  KQLogEntry tagged = entry;
  tagged.tags = tags({});
  EXPECT_EQ(renderLogEntry(tagged), "<0> f:1 m");
  tagged.tags = tags({str("a"), str("b c")});
  EXPECT_EQ(renderLogEntry(tagged), "<0> f:1 [a, b c] m");
}

TEST_F(LoggerTest, WritesToStandardErrorByDefault) {
  KQLogger::sharedLogger().setSink(nullptr);
  testing::internal::CaptureStderr();
  log("%d", 5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<3> -[Thing go:]:42 [Thing] 5\n");
}

TEST_F(LoggerTest, ByDefaultInputIsReplacedByItsLength) {
  const std::uint8_t field[] = {0x1c, 0x1d};
  const auto data = NSData::dataWithBytes(field);
  const auto value = KQHIDDeviceElementValue::elementValue({5, 7, 28, 3, 1, field});
  KQLogger::sharedLogger().setSink(nullptr);
  testing::internal::CaptureStderr();
  log("Received for reportID %u: %@", 28U, data);
  log("usage=%u, integerValue=%ld, bytes=%@ of %@", 28U, 1L, data, str("a device"));
  log("%@ and %@", value, tags({data}));
  const std::string start = "<3> -[Thing go:]:42 [Thing] ";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            start + "Received for reportID (left out): {length = 2}\n" + start +
                "usage=(left out), integerValue=(left out), bytes={length = 2} of a device\n" +
                start + "(input left out) and (input left out)\n");
}

TEST_F(LoggerTest, AnInstalledSinkGetsInputWholeAndTheOtherFormBesideIt) {
  const std::uint8_t field[] = {0x1c};
  std::vector<std::string> messages;
  KQLogger::sharedLogger().setSink(sink([&](const KQLogEntry& entry) {
    messages.emplace_back(entry.message);
    messages.emplace_back(entry.messageWithoutInput);
  }));
  log("Received for reportID %u: %@", 3U, NSData::dataWithBytes(field));
  log("status %d", 4);
  EXPECT_EQ(messages,
            (std::vector<std::string>{"Received for reportID 3: {length = 1, bytes = 0x1c}",
                                      "Received for reportID (left out): {length = 1}", "status 4",
                                      "status 4"}));
}

TEST_F(LoggerTest, ByDefaultALineIsOneLineWithoutControlCharacters) {
  KQLogger::sharedLogger().setSink(nullptr);
  testing::internal::CaptureStderr();
  log("%@", str("a\x1b[2Jb\nc"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "<3> -[Thing go:]:42 [Thing] a\\x1b[2Jb\\x0ac\n");
}

TEST_F(LoggerTest, ByDefaultALineHasAtMostFourThousandCharacters) {
  KQLogger::sharedLogger().setSink(nullptr);
  const std::size_t start = std::string_view("<3> -[Thing go:]:42 [Thing] ").size();
  testing::internal::CaptureStderr();
  log("%s", std::string(4000 - start, 'x'));
  log("%s", std::string(4001 - start, 'y'));
  const std::string written = testing::internal::GetCapturedStderr();
  const std::size_t end = written.find('\n');
  EXPECT_EQ(end, 4000U);
  EXPECT_EQ(written.size() - end - 2, 3999 + std::string_view("…").size());
  EXPECT_TRUE(written.ends_with("y…\n"));
}

TEST_F(LoggerTest, ReturnsTheSinkThatItReplaces) {
  const auto first = sink([](const KQLogEntry&) {});
  EXPECT_NE(KQLogger::sharedLogger().setSink(first), nullptr);
  EXPECT_EQ(KQLogger::sharedLogger().setSink(nullptr), first);
}

TEST_F(LoggerTest, ASinkMayLogAndReplaceItself) {
  std::vector<std::string> lines;
  const auto second = sink(
      [&](const KQLogEntry& entry) { lines.push_back("second " + std::string(entry.message)); });
  KQLogger::sharedLogger().setSink(sink([&](const KQLogEntry& entry) {
    lines.push_back("first " + std::string(entry.message));
    KQLogger::sharedLogger().setSink(second);
    log("from within");
  }));
  log("from without");
  EXPECT_EQ(lines, (std::vector<std::string>{"first from without", "second from within"}));
}

TEST_F(LoggerTest, ASinkThatIsReplacedLivesUntilItsCallEnds) {
  auto captured = std::make_shared<int>(5);
  const std::weak_ptr<int> watched = captured;
  int seen = 0;
  KQLogger::sharedLogger().setSink(sink([&, captured](const KQLogEntry&) {
    KQLogger::sharedLogger().setSink(nullptr);
    seen = *captured;
  }));
  captured.reset();
  log("x");
  EXPECT_EQ(seen, 5);
  EXPECT_TRUE(watched.expired());
}

TEST_F(LoggerTest, WhatASinkThrowsIsDropped) {
  KQLogger::sharedLogger().setSink(sink([](const KQLogEntry&) { throw std::runtime_error("no"); }));
  EXPECT_NO_THROW(log("x"));
  KQLogger::sharedLogger().setSink(sink([](const KQLogEntry&) { throw 5; }));
  EXPECT_NO_THROW(log("x"));
}

TEST_F(LoggerTest, AnEmptySinkSwallows) {
  KQLogger::sharedLogger().setSink(sink(nullptr));
  EXPECT_NO_THROW(log("x"));
}

TEST_F(LoggerTest, LinesOfSeveralThreadsArriveWholeAndInEachThreadsOrder) {
  std::atomic<int> count{0};
  std::atomic<int> disorder{0};
  KQLogger::sharedLogger().setSink(sink([&](const KQLogEntry& entry) {
    thread_local int last = -1;
    const int number = std::stoi(std::string(entry.message));
    if (number != last + 1) ++disorder;
    last = number;
    ++count;
  }));
  const auto work = [] {
    for (int i = 0; i < 500; ++i) log("%d", i);
  };
  std::thread first(work);
  std::thread second(work);
  first.join();
  second.join();
  EXPECT_EQ(count.load(), 1000);
  EXPECT_EQ(disorder.load(), 0);
}

TEST_F(LoggerTest, SinksMayBeReplacedWhileOthersLog) {
  std::atomic<int> seen{0};
  std::thread replacing([&] {
    for (int i = 0; i < 500; ++i)
      KQLogger::sharedLogger().setSink(sink([&](const KQLogEntry&) { ++seen; }));
  });
  KQLogger::sharedLogger().setSink(sink([&](const KQLogEntry&) { ++seen; }));
  for (int i = 0; i < 500; ++i) log("%d", i);
  replacing.join();
  EXPECT_EQ(seen.load(), 500);
}

TEST_F(LoggerTest, KeepsOneModuleAnIdentifier) {
  auto& logger = KQLogger::sharedLogger();
  const std::size_t before = logger.modules().size();
  const auto module = std::make_shared<Module>(str("one"), str("One"));
  EXPECT_TRUE(logger.addModule(module));
  EXPECT_FALSE(logger.addModule(module));
  EXPECT_FALSE(logger.addModule(std::make_shared<Module>(str("one"), str("Another"))));
  EXPECT_TRUE(logger.addModule(std::make_shared<Module>(str("two"), str("Two"))));
  EXPECT_FALSE(logger.addModule(nullptr));
  EXPECT_TRUE(logger.addModule(std::make_shared<Module>(nullptr, str("Nameless"))));
  EXPECT_TRUE(logger.addModule(std::make_shared<Module>(nullptr, str("Nameless"))));
  const auto modules = logger.modules();
  ASSERT_EQ(modules.size(), before + 4);
  EXPECT_EQ(modules[before], module);
  EXPECT_TRUE(modules[before + 1]->name()->isEqual(str("Two")));
}

}  // namespace
}  // namespace platform
