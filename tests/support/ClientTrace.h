// SPDX-License-Identifier: Apache-2.0

// The test kit's lines and recording delegate in the tests' own namespace.
#pragma once

#include "testkit/ClientTrace.h"
#include "testkit/RecordingDelegate.h"
#include "tests/support/TraceDiff.h"

namespace test {
using namespace testkit;
}  // namespace test
