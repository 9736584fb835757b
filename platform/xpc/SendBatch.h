// Messages that one thread sends on one connection while a batch is open: encoded in place, handed
// over together.
//
// Threading: belongs to the thread that opened it; other threads' messages do not wait for it.
// Ownership: the connection keeps one batch that is not in use, for its buffer. Errors: none.
// Order: the messages of the thread keep theirs; a request or the connection's end closes the batch
// first.
#pragma once

#include <vector>

#include "platform/xpc/SendBacklog.h"
#include "platform/xpc/Wire.h"

namespace platform::xpc {

class ConnectionCore;

struct SendBatch {
  struct Message {
    std::size_t end = 0;  ///< in `frames`
    SharedErrorHandler errorHandler;
  };
  static constexpr std::size_t kKeptSize = std::size_t{64} << 10;

  WireWriter frames;
  std::vector<Message> messages;
  const ConnectionCore* core = nullptr;
  SendBatch* outer = nullptr;  ///< of another connection, open in the same thread

  void clear() {
    frames.truncate(0);
    messages.clear();
  }
};

}  // namespace platform::xpc
