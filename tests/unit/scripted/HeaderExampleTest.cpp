// SPDX-License-Identifier: Apache-2.0

// The example at the top of ScriptedPlatform.h, taken directly from there.
#include <gtest/gtest.h>

#include "WLHIDAccess/WLHIDAccess.h"
#include "platform/scripted/ScriptedPlatform.h"

TEST(ScriptedPlatform, TheExampleInItsHeaderRuns) {
#include "HeaderExample.inc"
}
