// SPDX-License-Identifier: Apache-2.0

#include "router/SystemLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::system::PeerProcess;
using router::LogEntry;
using router::RoutingJournal;
using router::RoutingRecord;
using testing::ElementsAre;
using testing::HasSubstr;
using Kind = RoutingRecord::Kind;

constexpr platform::LogTemplate kLine{"a line"};

class RoutingJournalTest : public testing::Test {
 protected:
  RoutingJournalTest() {
    std::string whyNot;
    caller_ = PeerProcess::ofProcess(::getpid(), ::geteuid(), {}, whyNot);
    EXPECT_TRUE(caller_.has_value()) << whyNot;
    device_.registryEntryID = 0x10007;
    device_.name = "A Pen";
    device_.vendor = 0x56a;
    device_.product = 0x2f;
  }
  [[nodiscard]] RoutingRecord record(Kind kind, const std::string& reason = {}) const {
    return {kind, &*caller_, &device_, router::DeviceClass::Ordinary, reason};
  }
  void note(const RoutingRecord& noted) { journal_.note(noted); }
  [[nodiscard]] std::string who() const {
    return "process " + std::to_string(::getpid()) + " of user " + std::to_string(::geteuid());
  }

  std::optional<PeerProcess> caller_;
  router::DeviceDescription device_;
  std::vector<LogEntry> entries_;
  router::RouterLimits limits_ = [] {
    router::RouterLimits limits;
    limits.logLinesPerUser = {5, 0.001};
    return limits;
  }();
  RoutingJournal journal_{[this](LogEntry entry) { entries_.push_back(std::move(entry)); },
                          limits_};
};

TEST_F(RoutingJournalTest, EachDecisionIsALineOfItsOwn) {
  note(record(Kind::Granted));
  note(record(Kind::Denied, "the login session is locked"));
  note(record(Kind::Revoked, "the login session has ended"));
  note(record(Kind::Ended));
  note(record(Kind::Begun));
  ASSERT_EQ(entries_.size(), 5U);
  EXPECT_EQ(entries_[0].line.text(), who() + " may have device 0x10007 (A Pen)");
  EXPECT_EQ(entries_[1].line.text(),
            who() + " may not have device 0x10007: the login session is locked");
  EXPECT_EQ(entries_[2].line.text(),
            who() + " may no longer have device 0x10007: the login session has ended");
  EXPECT_EQ(entries_[3].line.text(), who() + " no longer has device 0x10007 (A Pen)");
  EXPECT_EQ(entries_[4].line.text(), who() + " receives the input of device 0x10007 (A Pen)");
  EXPECT_FALSE(entries_[0].isNotable);
  EXPECT_TRUE(entries_[1].isNotable);
}

TEST_F(RoutingJournalTest, TheFieldsSayWhoAndWhat) {
  note(record(Kind::Denied, "no"));
  const std::map<std::string, std::string> fields(entries_[0].fields.begin(),
                                                  entries_[0].fields.end());
  EXPECT_EQ(fields.at("WLHID_EVENT"), "denied");
  EXPECT_EQ(fields.at("WLHID_USER"), std::to_string(::geteuid()));
  EXPECT_EQ(fields.at("WLHID_PROGRAM"), caller_->program());
  EXPECT_EQ(fields.at("WLHID_DEVICE"), "A Pen");
  EXPECT_EQ(fields.at("WLHID_VENDOR"), "056a");
  EXPECT_EQ(fields.at("WLHID_PRODUCT"), "002f");
  EXPECT_EQ(fields.at("WLHID_CLASS"), "ordinary");
  EXPECT_EQ(fields.count("WLHID_UNIT"), caller_->unit().empty() ? 0U : 1U);
}

TEST_F(RoutingJournalTest, AUserWhoCausesTooManyEntriesIsCutShort) {
  for (int i = 0; i < 10; ++i) note(record(Kind::Granted));
  EXPECT_EQ(entries_.size(), 5U);
}

TEST(SystemLog, EachLineGoesToTheJournalAndToTheClassicLog) {
  const testsupport::TemporaryDirectory directory;
  std::ofstream{directory.path() / "system.log"};
  std::vector<std::vector<std::string>> journal;
  {
    const auto log = std::make_shared<router::SystemLog>(
        platform::system::Journal("router",
                                  [&](std::span<const std::string> entry) {
                                    journal.emplace_back(entry.begin(), entry.end());
                                  }),
        platform::FileDescriptor(
            ::open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    log->sink()(platform::LogLine::of<kLine>());
    std::string whyNot;
    const auto caller = PeerProcess::ofProcess(::getpid(), ::geteuid(), {}, whyNot);
    ASSERT_TRUE(caller.has_value()) << whyNot;
    router::DeviceDescription device;
    device.name = "A Pen";
    log->note({Kind::Denied, &*caller, &device, router::DeviceClass::Sensitive, "no"});
  }
  ASSERT_EQ(journal.size(), 2U);
  EXPECT_THAT(journal[0], ElementsAre("MESSAGE=a line", "PRIORITY=6", "SYSLOG_IDENTIFIER=router"));
  EXPECT_THAT(journal[1],
              testing::IsSupersetOf({"PRIORITY=5", "SYSLOG_IDENTIFIER=router", "WLHID_EVENT=denied",
                                     "WLHID_CLASS=sensitive", "WLHID_DEVICE=A Pen"}));
  const std::string classic = testsupport::readFile(directory.path() / "system.log");
  EXPECT_THAT(classic, HasSubstr("]: a line\n"));
  EXPECT_THAT(classic, HasSubstr("may not have device 0x0: no\n"));
}

}  // namespace
