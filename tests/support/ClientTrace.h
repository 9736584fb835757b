// The test kit's lines and recording delegate under the tests' own namespace.
//
// Threading, Ownership, Errors, Order: see there.
#pragma once

#include "testkit/ClientTrace.h"
#include "testkit/RecordingDelegate.h"
#include "tests/support/TraceDiff.h"

namespace test {
using namespace testkit;
}  // namespace test
