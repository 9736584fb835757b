// SPDX-License-Identifier: Apache-2.0

// A device's class in words.
//
// Threading: any thread.
#pragma once

#include <string>

#include "router/policy/DeviceClass.h"

namespace tool {

/// "ordinary", "sensitive"
[[nodiscard]] std::string className(const router::Classification& classification);
/// The class, the rule that decided, and the reports of a sensitive device that are harmless.
[[nodiscard]] std::string classText(const router::Classification& classification);

}  // namespace tool
