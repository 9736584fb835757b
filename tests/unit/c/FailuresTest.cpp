// SPDX-License-Identifier: Apache-2.0

#include "c/Failures.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using wlhid::Error;
using wlhid::abi::codeOf;
using wlhid::abi::guarded;

constexpr const char* kRouter = "HIDEventRouterDomain";
constexpr const char* kAuthorization = "NSOSStatusErrorDomain";
constexpr const char* kConnection = "NSCocoaErrorDomain";
constexpr const char* kServices = "WLServiceManagementErrorDomain";

struct Expected {
  const char* domain;
  std::int64_t code;
  wlhid_code meaning;
};

class Meaning : public testing::TestWithParam<Expected> {};

TEST_P(Meaning, IsWhatTheProgramCanDoAboutIt) {
  const auto& [domain, code, meaning] = GetParam();
  EXPECT_EQ(codeOf(Error(domain, code, "words")), meaning) << domain << ' ' << code;
}

INSTANTIATE_TEST_SUITE_P(
    OfTheRouter, Meaning,
    testing::Values(Expected{kRouter, -1, WLHID_NO_ROUTER},
                    Expected{kRouter, -536870208, WLHID_NO_DEVICE},      // 0xE00002C0
                    Expected{kRouter, -536870206, WLHID_BAD_ARGUMENT},   // 0xE00002C2
                    Expected{kRouter, -536870203, WLHID_BUSY},           // 0xE00002C5: exclusive
                    Expected{kRouter, -536870187, WLHID_BUSY},           // 0xE00002D5: too many
                    Expected{kRouter, -536870174, WLHID_NOT_PERMITTED},  // 0xE00002E2
                    Expected{kRouter, -536870169, WLHID_ENDED},          // 0xE00002E7: played
                    Expected{kRouter, -536870165, WLHID_ENDED},          // 0xE00002EB: ended
                    Expected{kRouter, -536870212, WLHID_FAILED}));

INSTANTIATE_TEST_SUITE_P(OfTheConsent, Meaning,
                         testing::Values(Expected{kAuthorization, -60005, WLHID_NOT_PERMITTED},
                                         Expected{kAuthorization, -60006, WLHID_CANCELED},
                                         Expected{kAuthorization, -60007, WLHID_NOBODY_TO_ASK},
                                         Expected{kAuthorization, -60008, WLHID_FAILED}));

INSTANTIATE_TEST_SUITE_P(OfTheConnection, Meaning,
                         testing::Values(Expected{kConnection, 4097, WLHID_NO_ROUTER},
                                         Expected{kConnection, 4099, WLHID_NO_ROUTER},
                                         Expected{kConnection, 4101, WLHID_FAILED}));

INSTANTIATE_TEST_SUITE_P(OfTheInstallation, Meaning,
                         testing::Values(Expected{kServices, 6, WLHID_NOT_PERMITTED},
                                         Expected{kServices, 7, WLHID_TIMED_OUT},
                                         Expected{kServices, 10, WLHID_BUSY},
                                         Expected{kServices, 11, WLHID_CANCELED},
                                         Expected{kServices, 12, WLHID_NOBODY_TO_ASK},
                                         Expected{kServices, 4, WLHID_FAILED}));

INSTANTIATE_TEST_SUITE_P(OfTheLayerItself, Meaning,
                         testing::Values(Expected{wlhid::kErrorDomain, 1, WLHID_TIMED_OUT},
                                         Expected{wlhid::kErrorDomain, 2, WLHID_NO_ROUTER},
                                         Expected{kRouter, 2, WLHID_FAILED}));

TEST(Guarded, AnErrorIsItsCodeAndItsWords) {
  EXPECT_EQ(guarded([]() -> int { throw Error(kServices, 7, "It took too long."); }),
            WLHID_TIMED_OUT);
  EXPECT_STREQ(wlhid_last_error(), "It took too long.");
}

TEST(Guarded, MissingMemoryIsACodeOfItsOwn) {
  EXPECT_EQ(guarded([]() -> int { throw std::bad_alloc(); }), WLHID_NO_MEMORY);
  EXPECT_STREQ(wlhid_last_error(), "There is not enough memory.");
}

TEST(Guarded, WhateverElseIsThrownHasFailed) {
  EXPECT_EQ(guarded([]() -> int { throw std::runtime_error("no descriptor"); }), WLHID_FAILED);
  EXPECT_STREQ(wlhid_last_error(), "no descriptor");
  EXPECT_EQ(guarded([]() -> int { throw 1; }), WLHID_FAILED);
  EXPECT_STREQ(wlhid_last_error(), "It failed. wlhid_last_error() says why.");
}

TEST(Guarded, ASuccessLeavesTheWordsOfTheLastFailure) {
  EXPECT_EQ(guarded([]() -> int { throw std::runtime_error("earlier"); }), WLHID_FAILED);
  EXPECT_EQ(guarded([] { return WLHID_AGAIN; }), WLHID_AGAIN);
  EXPECT_STREQ(wlhid_last_error(), "earlier");
}

TEST(LastError, IsCutWhereItDoesNotFit) {
  EXPECT_EQ(wlhid::abi::fail(WLHID_FAILED, std::string(5000, 'x')), WLHID_FAILED);
  EXPECT_EQ(std::string(wlhid_last_error()), std::string(2047, 'x'));
}

TEST(Failures, WordsAreMadePrintable) {
  EXPECT_EQ(wlhid::abi::fail(WLHID_FAILED, "\x1b[2Jno\u202e"), WLHID_FAILED);
  EXPECT_STREQ(wlhid_last_error(), "\\x1b[2Jno\\u202e");
}

}  // namespace
