// Calls somebody else's code: what it throws costs one log line and nothing else.
#pragma once

#include <exception>
#include <string>

#include "platform/xpc/ConnectionCore.h"

namespace platform::xpc {

template <class Call>
void ConnectionCore::guarded(const char* what, const Call& call) const {
  try {
    call();
  } catch (const std::exception& exception) {
    log(std::string(what) + " threw: " + exception.what());
  } catch (...) {
    log(std::string(what) + " threw");
  }
}

}  // namespace platform::xpc
