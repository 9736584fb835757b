// SPDX-License-Identifier: Apache-2.0

// The conformance set three ways: the titles of its messages, the second implementation of the
// page, and the connection layer must agree.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "platform/xpc/NSXPCListener.h"
#include "tests/conformance/wire/WireJudge.h"
#include "tests/conformance/wire/WireReceiver.h"

using namespace conformance;

namespace {

/// The limit for messages that are truncated at each byte here; a stress program takes larger ones.
constexpr std::size_t kSmall = 160;
/// The limit if each bit costs a connection of its own.
constexpr std::size_t kVerySmall = 40;

Verdict verdictOf(const Judgement& judgement) {
  if (judgement.state == StreamState::Breach) return Verdict::Breach;
  if (judgement.state == StreamState::Incomplete) return Verdict::Incomplete;
  return judgement.reason.empty() ? Verdict::Accepted : Verdict::Refused;
}

void expectAsJudged(Receiver receiver, const Bytes& bytes, const std::string& what) {
  const Judgement judged = judge(receiver, bytes);
  const Observation observed = observe(receiver, bytes);
  ASSERT_EQ(observed.events, judged.events) << what;
  ASSERT_EQ(observed.answers, judged.answers) << what;
}

Bytes first(const Bytes& bytes, std::size_t count) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

/// A message that its receiver accepts at any time.
Bytes probe(Receiver receiver) {
  switch (receiver) {
    case Receiver::Client:
    case Receiver::ClientFirst:
      return bytesOfNotation("06 00 00 00 02 00 00 00 01 00 63 00 00 00");
    case Receiver::Directory:
      return bytesOfNotation("10 00 00 00 03 00 01 00 63 (00)*7 05 (00)*7");
    case Receiver::Watcher:
      return bytesOfNotation("08 00 00 00 02 00 02 00 63 (00)*7");
    default:
      return bytesOfNotation("00 00 00 00 02 00 01 00");
  }
}

}  // namespace

TEST(WireConformance, TheSetCoversEachReceiverAndVerdict) {
  std::set<std::string> names;
  std::map<Verdict, std::size_t> verdicts;
  std::map<Receiver, std::size_t> receivers;
  for (const WireMessage& each : wireMessages()) {
    EXPECT_TRUE(names.insert(each.name).second) << each.name;
    ++verdicts[each.verdict];
    ++receivers[each.receiver];
  }
  EXPECT_GE(names.size(), 500U);
  EXPECT_GE(verdicts[Verdict::Accepted], 100U);
  EXPECT_GE(verdicts[Verdict::Refused], 50U);
  EXPECT_GE(verdicts[Verdict::Breach], 100U);
  EXPECT_GE(verdicts[Verdict::Incomplete], 10U);
  EXPECT_EQ(receivers.size(), 7U);
}

TEST(WireConformance, TheSecondReadingAgreesWithEveryTitle) {
  for (const WireMessage& each : wireMessages()) {
    const Judgement judged = judge(each.receiver, each.bytes);
    EXPECT_EQ(verdictOf(judged), each.verdict) << each.name << ": " << judged.reason;
    EXPECT_EQ(judged.reason, each.reason) << each.name;
  }
}

TEST(WireConformance, TheLayerDoesWhatTheSecondReadingSays) {
  for (const WireMessage& each : wireMessages())
    expectAsJudged(each.receiver, each.bytes, each.name);
}

TEST(WireConformance, AfterAnAcceptedMessageTheConnectionIsUsable) {
  std::size_t probed = 0;
  for (const WireMessage& each : wireMessages()) {
    const Judgement judged = judge(each.receiver, each.bytes);
    if (judged.state != StreamState::Whole || each.bytes.empty()) continue;
    if (each.receiver == Receiver::BareFirst) continue;
    Bytes followed(each.bytes);
    const Bytes more = probe(each.receiver);
    followed.insert(followed.end(), more.begin(), more.end());
    const Judgement further = judge(each.receiver, followed);
    EXPECT_EQ(further.events.size(), judged.events.size() + 1) << each.name;
    EXPECT_EQ(further.state, StreamState::Whole) << each.name;
    expectAsJudged(each.receiver, followed, each.name);
    ++probed;
  }
  EXPECT_GE(probed, 150U);
}

TEST(WireConformance, NothingIsMadeOfATruncatedMessageAndMoreIsAwaitedOnlyWhereItWasWhole) {
  std::size_t truncations = 0;
  for (const WireMessage& each : wireMessages()) {
    if (each.bytes.size() > kSmall) continue;
    for (std::size_t length = 0; length < each.bytes.size(); ++length) {
      const Bytes cut = first(each.bytes, length);
      const std::string what = each.name + " cut to " + std::to_string(length);
      const bool mayBecomeGood = each.verdict != Verdict::Breach;
      EXPECT_TRUE(!mayBecomeGood || judge(each.receiver, cut).state != StreamState::Breach) << what;
      expectAsJudged(each.receiver, cut, what);
      ++truncations;
    }
  }
  EXPECT_GE(truncations, 10'000U);
}

TEST(WireConformance, AFlippedBitIsJudgedLikeAnyOtherMessage) {
  std::map<Verdict, std::size_t> verdicts;
  for (const WireMessage& each : wireMessages()) {
    if (each.bytes.size() > kVerySmall) continue;
    for (std::size_t bit = 0; bit < each.bytes.size() * 8; ++bit) {
      Bytes flipped(each.bytes);
      flipped[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
      ++verdicts[verdictOf(judge(each.receiver, flipped))];
      expectAsJudged(each.receiver, flipped, each.name + " with bit " + std::to_string(bit));
    }
  }
  for (const Verdict verdict :
       {Verdict::Accepted, Verdict::Refused, Verdict::Breach, Verdict::Incomplete})
    EXPECT_GE(verdicts[verdict], 500U);
}
