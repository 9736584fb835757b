// A program that links the framework and uses the logger alone: the log module must be there, once,
// when main begins.
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
