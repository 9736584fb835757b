// SPDX-License-Identifier: Apache-2.0

// Splits a stream into frames: hello, calls, replies, the farewell, or the breach that ends it.
// Everything that the wire format demands of a peer is checked here, without a socket, a lock or a
// thread.
//
// Threading: one thread at a time.
// Ownership: a frame refers to the caller's bytes.
// Errors: a breach, with its reason; std::bad_alloc if there is no memory for the decoded values.
// Order: nothing follows a breach or the farewell until reset().
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/xpc/Hello.h"
#include "platform/xpc/InterfaceTable.h"
#include "platform/xpc/Wire.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform::xpc {

struct Frame {
  FrameKind kind = FrameKind::Hello;
  std::size_t method = 0;                ///< of a message or request
  std::uint64_t id = 0;                  ///< of a request or an answer to one; otherwise 0
  std::span<const std::uint8_t> values;  ///< the rest, not decoded yet
};

class FrameReceiver {
 public:
  enum class Outcome { Incomplete, Frame, Breach };

  /// Examines the first frame of `bytes`.
  [[nodiscard]] Outcome next(std::span<const std::uint8_t> bytes);
  [[nodiscard]] const Frame& frame() const { return frame_; }
  /// The size of the frame in bytes; of an incomplete one its final size, 0 while unknown.
  [[nodiscard]] std::size_t frameSize() const { return size_; }
  [[nodiscard]] std::string_view reason() const { return reason_; }
  [[nodiscard]] bool sawHello() const { return sawHello_; }

  /// Why the received hello does not match ours; empty if it does.
  [[nodiscard]] std::string mismatchWith(const Hello& ours) const;
  /// Decodes the arguments of the received message or request into `values`, which must be empty. A
  /// call to a method that the protocol does not have is malformed.
  [[nodiscard]] ValuesResult decodeCall(const InterfaceTable& exported, XPCValues& values) const;
  /// The same for the values of a reply.
  [[nodiscard]] ValuesResult decodeReply(const std::vector<ArgumentRule>& rules,
                                         XPCValues& values) const;

  /// Prepares for the next stream.
  void reset() { *this = {}; }

 private:
  Outcome breach(std::string_view reason);
  Outcome checkCall();
  Outcome checkOther();
  Outcome checkReplyDropped();
  /// Reads the ID before the values; 0 if it is truncated.
  void takeID();

  Frame frame_;
  std::size_t size_ = 0;
  std::string_view reason_;  ///< a string constant
  bool sawHello_ = false;
};

}  // namespace platform::xpc
