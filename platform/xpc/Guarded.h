// SPDX-License-Identifier: Apache-2.0

// Calls into the application, whose exceptions cost one log line and nothing else, and retries
// while memory is short.
#pragma once

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <string>

#include "platform/foundation/ForkMark.h"
#include "platform/xpc/ConnectionCore.h"
#include "platform/xpc/Pacing.h"

namespace platform::xpc {

template <class Call>
void ConnectionCore::guarded(const char* what, const Call& call) const {
  try {
    call();
  } catch (const std::exception& exception) {
    log(what, " threw: ", exception.what());
  } catch (...) {
    log(what, " threw");
  }
  if (mark_.isInherited()) throw InForkedChild();
}

/// Logs one line, or nothing if memory is short.
template <class... Parts>
void ConnectionCore::log(const Parts&... parts) const {
  try {
    std::string text;
    (text.append(parts), ...);
    logText(text);
  } catch (const std::bad_alloc&) {
  }
}

/// Retries for some seconds what fails for lack of memory; returns whether it succeeded.
template <class Action>
[[nodiscard]] bool retryWhileShort(const Action& action) {
  constexpr std::chrono::milliseconds kLongestWait{100};
  const unsigned attempts = attemptsWhileShort.load();
  for (unsigned attempt = 1; attempt <= attempts; ++attempt) {
    try {
      action();
      return true;
    } catch (const std::bad_alloc&) {
      const auto wait = std::min(pauseBeforeAttempt(attempt), kLongestWait);
      ::poll(nullptr, 0, static_cast<int>(wait.count()));
    }
  }
  return false;
}

}  // namespace platform::xpc
