// SPDX-License-Identifier: Apache-2.0

#include "platform/system/Journal.h"

#include <gmock/gmock.h>

#include <array>
#include <string>
#include <vector>

namespace {

using platform::LogLine;
using platform::LogTemplate;
using platform::system::Journal;
using platform::system::JournalField;
using testing::ElementsAre;

inline constexpr LogTemplate refused{"refused: {text}"};

struct Entries {
  std::vector<std::vector<std::string>> all;
  Journal::Sink sink() {
    return [this](std::span<const std::string> entry) {
      all.emplace_back(entry.begin(), entry.end());
    };
  }
};

TEST(Journal, AnEntryHasItsLinePriorityAndFields) {
  Entries entries;
  const Journal journal("router", entries.sink());
  const std::array fields{JournalField{"WLHID_DEVICE", "0x1001"}, JournalField{"WLHID_CLASS", ""}};
  journal.write(Journal::Priority::Notice, LogLine::of<refused>("not asked"), fields);
  ASSERT_EQ(entries.all.size(), 1U);
  EXPECT_THAT(entries.all[0],
              ElementsAre("MESSAGE=refused: not asked", "PRIORITY=5", "SYSLOG_IDENTIFIER=router",
                          "WLHID_DEVICE=0x1001", "WLHID_CLASS="));
}

TEST(Journal, AValueIsOneBoundedLine) {
  Entries entries;
  const Journal journal("router", entries.sink());
  const std::string text = "a\nPRIORITY=0\n" + std::string(2000, 'x');
  const std::array fields{JournalField{"WLHID_NAME", text}};
  journal.write(Journal::Priority::Info, LogLine::of<refused>(text), fields);
  ASSERT_EQ(entries.all.size(), 1U);
  for (const std::string& field : entries.all[0]) EXPECT_EQ(field.find('\n'), std::string::npos);
  EXPECT_TRUE(entries.all[0][3].starts_with("WLHID_NAME=a\\x0aPRIORITY=0\\x0axxx"));
  EXPECT_TRUE(entries.all[0][3].ends_with("…"));
  EXPECT_EQ(Journal::kMaximumValueCharacters, 500U);
  EXPECT_LE(entries.all[0][3].size(), Journal::kMaximumValueCharacters + 50);
}

TEST(Journal, AFieldThatIsNoneOrNotOursIsLeftOut) {
  Entries entries;
  const Journal journal("router", entries.sink());
  const std::string tooLong(65, 'A');
  const std::array fields{JournalField{"", "x"},          JournalField{"lower", "x"},
                          JournalField{"_PID", "1"},      JournalField{"1A", "x"},
                          JournalField{"A=B", "x"},       JournalField{"A\nB", "x"},
                          JournalField{"MESSAGE", "x"},   JournalField{"PRIORITY", "0"},
                          JournalField{tooLong, "x"},     JournalField{"SYSLOG_IDENTIFIER", "x"},
                          JournalField{"MESSAGE_ID", "m"}};
  journal.write(Journal::Priority::Error, LogLine::of<refused>("y"), fields);
  ASSERT_EQ(entries.all.size(), 1U);
  EXPECT_THAT(entries.all[0], ElementsAre("MESSAGE=refused: y", "PRIORITY=3",
                                          "SYSLOG_IDENTIFIER=router", "MESSAGE_ID=m"));
}

TEST(Journal, WithoutASinkNothingHappens) {
  const Journal journal{"router", Journal::Sink()};
  journal.write(Journal::Priority::Info, LogLine::of<refused>("y"), {});
}

}  // namespace
