// SPDX-License-Identifier: Apache-2.0

// Encoded messages, one after another, and where each one ends.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/xpc/SendBacklog.h"
#include "platform/xpc/Wire.h"

namespace platform::xpc {

struct BatchedFrames {
  struct Message {
    std::size_t end = 0;  ///< in `frames`
    SharedErrorHandler errorHandler;
  };

  WireWriter frames;
  std::vector<Message> messages;

  void clear() {
    frames.truncate(0);
    messages.clear();
  }
};

}  // namespace platform::xpc
