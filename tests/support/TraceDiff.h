// SPDX-License-Identifier: Apache-2.0

// The test kit's comparison of traces as a GoogleTest assertion.
#pragma once

#include <gtest/gtest.h>

#include "testkit/TraceDiff.h"

namespace test {

using testkit::Lines;
using testkit::Piece;
using testkit::sequence;
using testkit::traceDiff;

inline ::testing::AssertionResult sameTrace(const Lines& expected, const Lines& actual) {
  if (expected == actual) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the traces differ (- expected, + actual):\n"
                                       << traceDiff(expected, actual);
}

}  // namespace test
