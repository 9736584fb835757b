// Calls somebody else's code: what it throws costs one log line and nothing else. And what to do
// where memory is short.
#pragma once

#include <poll.h>

#include <algorithm>
#include <exception>
#include <new>
#include <string>

#include "platform/xpc/ConnectionCore.h"

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
}

/// One line. Where memory is short there is none.
template <class... Parts>
void ConnectionCore::log(const Parts&... parts) const {
  try {
    std::string text;
    (text.append(parts), ...);
    logText(text);
  } catch (const std::bad_alloc&) {
  }
}

/// What must be done sooner or later, however short memory is: tried until there is enough.
template <class Action>
auto patiently(const Action& action) -> decltype(action()) {
  constexpr int kLongestWait = 100;
  for (int wait = 0;; wait = std::min(wait * 2 + 1, kLongestWait)) {
    try {
      return action();
    } catch (const std::bad_alloc&) {
      ::poll(nullptr, 0, wait);
    }
  }
}

}  // namespace platform::xpc
