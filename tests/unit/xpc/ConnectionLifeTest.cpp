// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/ConnectionLife.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using platform::xpc::ConnectionLife;
using Event = ConnectionLife::Event;
using Phase = ConnectionLife::Phase;

const std::map<Phase, std::vector<Event>> kWaysTo = {
    {Phase::Fresh, {}},
    {Phase::Active, {Event::Resume}},
    {Phase::Cancelled, {Event::Invalidate}},
    {Phase::Invalidated, {Event::Resume, Event::Invalidate}},
    {Phase::Abandoned, {Event::Abandon}},
    {Phase::Lost, {Event::Resume, Event::Lose}},
    {Phase::Over, {Event::Resume, Event::Lose, Event::Notify}},
};

ConnectionLife lifeIn(Phase phase) {
  ConnectionLife life;
  for (const Event event : kWaysTo.at(phase)) EXPECT_TRUE(life.take(event));
  EXPECT_EQ(life.phase(), phase);
  return life;
}

/// The valid transitions; every event that is not listed changes nothing.
const std::map<Phase, std::map<Event, Phase>> kLegal = {
    {Phase::Fresh,
     {{Event::Resume, Phase::Active},
      {Event::Invalidate, Phase::Cancelled},
      {Event::Abandon, Phase::Abandoned}}},
    {Phase::Active,
     {{Event::Invalidate, Phase::Invalidated},
      {Event::Abandon, Phase::Abandoned},
      {Event::Lose, Phase::Lost}}},
    {Phase::Cancelled, {{Event::Notify, Phase::Over}}},
    {Phase::Invalidated, {{Event::Notify, Phase::Over}}},
    {Phase::Abandoned, {{Event::Notify, Phase::Over}}},
    {Phase::Lost,
     {{Event::Invalidate, Phase::Invalidated},
      {Event::Abandon, Phase::Abandoned},
      {Event::Notify, Phase::Over}}},
    {Phase::Over, {}},
};

TEST(ConnectionLife, TakesWhatHasAPlaceInItsPhaseAndNothingElse) {
  ASSERT_EQ(kLegal.size(), ConnectionLife::kPhaseCount);
  for (const auto& [phase, next] : kLegal) {
    for (std::size_t i = 0; i < ConnectionLife::kEventCount; ++i) {
      const auto event = static_cast<Event>(i);
      ConnectionLife life = lifeIn(phase);
      const auto found = next.find(event);
      EXPECT_EQ(life.take(event), found != next.end()) << int(phase) << ' ' << i;
      EXPECT_EQ(life.phase(), found == next.end() ? phase : found->second)
          << int(phase) << ' ' << i;
    }
  }
}

TEST(ConnectionLife, SaysWhatAPhaseIsLike) {
  const auto inThese = [](auto question) {
    std::string names;
    for (const auto& [phase, way] : kWaysTo)
      if ((lifeIn(phase).*question)()) names += "FACIALO"[static_cast<std::size_t>(phase)];
    return names;
  };
  EXPECT_EQ(inThese(&ConnectionLife::isActive), "A");
  EXPECT_EQ(inThese(&ConnectionLife::hasEnded), "CIALO");
  EXPECT_EQ(inThese(&ConnectionLife::endsLocally), "CIA");
  EXPECT_EQ(inThese(&ConnectionLife::mayNotify), "FACIL");
}

}  // namespace
