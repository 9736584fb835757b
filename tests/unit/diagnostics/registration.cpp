// SPDX-License-Identifier: Apache-2.0

// A program that links the framework and uses only the logger: the log module must be registered,
// once, when main starts.
#include <algorithm>
#include <cstdio>

#include "platform/kit/KQLogger.h"

int main() {
  const auto modules = platform::KQLogger::sharedLogger().modules();
  const auto found = std::ranges::count_if(modules, [](const auto& module) {
    return module->identifier()->UTF8String() == "WLHIDEventRouter";
  });
  std::printf("%td log module of that identifier\n", found);
  return found == 1 ? 0 : 1;
}
