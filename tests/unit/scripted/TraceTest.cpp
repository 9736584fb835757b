// SPDX-License-Identifier: Apache-2.0

// The trace, and how it describes events.
#include "platform/scripted/Trace.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSNumber.h"
#include "platform/scripted/Describe.h"
#include "platform/scripted/ScriptedPlatform.h"

namespace {

using namespace platform;
using Lines = std::vector<std::string>;

constexpr std::chrono::seconds kAtOnce{0};

TraceEvent event(TraceKind kind, std::string text) {
  return {.kind = kind, .object = "o", .name = "n", .arguments = {"a"}, .text = std::move(text)};
}

TEST(Trace, KeepsEventsInOrderAndForgetsThemWhenTheyAreTaken) {
  Trace trace;
  trace.record(event(TraceKind::Call, "one"));
  trace.record("two");
  EXPECT_EQ(trace.lines(), (Lines{"one", "two"}));
  ASSERT_EQ(trace.events().size(), 2U);
  EXPECT_EQ(trace.events()[0].kind, TraceKind::Call);
  EXPECT_EQ(trace.events()[0].object, "o");
  EXPECT_EQ(trace.events()[0].name, "n");
  EXPECT_EQ(trace.events()[0].arguments, Lines{"a"});
  EXPECT_EQ(trace.events()[1].kind, TraceKind::Note);
  EXPECT_EQ(trace.take(), (Lines{"one", "two"}));
  EXPECT_EQ(trace.take(), Lines{});
  EXPECT_EQ(trace.lines(), Lines{});
}

TEST(Trace, TellsKindsApart) {
  Trace trace;
  trace.record(event(TraceKind::Log, "log"));
  trace.record(event(TraceKind::Call, "call"));
  trace.record(event(TraceKind::Log, "again"));
  const auto logged = trace.events(TraceKind::Log);
  ASSERT_EQ(logged.size(), 2U);
  EXPECT_EQ(logged[0].text, "log");
  EXPECT_EQ(logged[1].text, "again");
  EXPECT_TRUE(trace.events(TraceKind::Change).empty());
}

TEST(Trace, TellsThreadsApart) {
  Trace trace;
  trace.record("mine");
  std::thread::id other;
  std::thread([&] {
    other = std::this_thread::get_id();
    trace.record("another's");
  }).join();
  EXPECT_EQ(trace.linesOfThread(std::this_thread::get_id()), Lines{"mine"});
  EXPECT_EQ(trace.linesOfThread(other), Lines{"another's"});
}

TEST(Trace, WaitsForALineAsOftenAsItIsWanted) {
  Trace trace;
  trace.record("line");
  trace.record("a line");
  EXPECT_TRUE(trace.waitFor("line", 1, kAtOnce));
  EXPECT_FALSE(trace.waitFor("line", 2, kAtOnce));
  EXPECT_FALSE(trace.waitFor("lin", 1, kAtOnce));
  trace.record("line");
  EXPECT_TRUE(trace.waitFor("line", 2, kAtOnce));
  EXPECT_TRUE(trace.waitForPrefix("a l", kAtOnce));
  EXPECT_FALSE(trace.waitForPrefix("ine", kAtOnce));
}

TEST(Trace, IsWokenByWhatIsRecordedMeanwhile) {
  Trace trace;
  auto waiting = std::async(std::launch::async, [&] { return trace.waitFor("line"); });
  auto forPrefix = std::async(std::launch::async, [&] { return trace.waitForPrefix("li"); });
  trace.record("line");
  EXPECT_TRUE(waiting.get());
  EXPECT_TRUE(forPrefix.get());
}

TEST(Trace, TellsItsWatcherOfALineThatIsThere) {
  Trace trace;
  Lines told;
  trace.setWatcher([&](const std::string& line) {
    told.push_back(line);
    EXPECT_EQ(trace.lines().back(), line);
  });
  trace.record("one");
  trace.setWatcher(nullptr);
  trace.record("two");
  EXPECT_EQ(told, Lines{"one"});
}

TEST(Describing, PutsATextOnOneLineWithSingleBlanks) {
  EXPECT_EQ(describe(std::string_view("")), "");
  EXPECT_EQ(describe(std::string_view(" \n\t")), "");
  EXPECT_EQ(describe(std::string_view("  a \n\t b\tc\n")), "a b c");
  EXPECT_EQ(describe(std::string_view("a b")), "a b");
}

TEST(Describing, NamesObjectsInterfacesAndClasses) {
  EXPECT_EQ(describe(std::shared_ptr<NSObject>()), "nil");
  EXPECT_EQ(describe(NSArray::arrayWithObjects({str("a b")})), "( \"a b\" )");
  EXPECT_EQ(describeInterface(nullptr), "nil");
  EXPECT_EQ(describeClasses({}), "()");
  EXPECT_EQ(describeClasses({&NSString::classObject(), &NSArray::classObject()}),
            "(NSString, NSArray)");
}

TEST(Describing, WritesNumbersAsDigitsAndObjectsAsTheyAre) {
  XPCValues values;
  values.append(std::uint32_t{7});
  values.append(std::uint64_t{1} << 40);
  values.append(std::shared_ptr<NSObject>(str("text")));
  values.append(std::shared_ptr<NSObject>());
  EXPECT_EQ(describeValues(values), (Lines{"7", "1099511627776", "text", "nil"}));
}

TEST(Describing, ALogLineTellsLevelSiteTagsAndMessage) {
  KQLogEntry entry{.level = 3,
                   .function = "-[A go]",
                   .sourcePath = "A",
                   .sourceLine = 42,
                   .tags = nullptr,
                   .message = "a  b",
                   .format = ""};
  EXPECT_EQ(describeLogEntry(entry), "log 3 A:42 -[A go] no tags a b");
  entry.tags = NSArray::arrayWithObjects({str("x"), str("y")});
  EXPECT_EQ(describeLogEntry(entry), "log 3 A:42 -[A go] (x, y) a b");
}

}  // namespace
