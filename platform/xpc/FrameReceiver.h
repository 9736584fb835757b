// What the bytes of a stream say: hello, calls, replies, the farewell, or the breach that ends it.
// All that the wire format demands of a peer is checked here, without a socket, a lock or a thread.
//
// Threading: one thread at a time. Ownership: a frame refers to the caller's bytes.
// Errors: a breach, with its reason; std::bad_alloc when memory for decoded values is short.
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

namespace platform::xpc {

struct Frame {
  FrameKind kind = FrameKind::Hello;
  std::size_t method = 0;                ///< of a message or request
  std::uint64_t id = 0;                  ///< of a request and of what answers one; 0 otherwise
  std::span<const std::uint8_t> values;  ///< what follows, not decoded yet
};

class FrameReceiver {
 public:
  enum class Outcome { Incomplete, Frame, Breach };

  /// Examines the first frame of `bytes`.
  [[nodiscard]] Outcome next(std::span<const std::uint8_t> bytes);
  [[nodiscard]] const Frame& frame() const { return frame_; }
  /// The bytes that the frame takes up; of an incomplete one those that it will, 0 while unknown.
  [[nodiscard]] std::size_t frameSize() const { return size_; }
  [[nodiscard]] std::string_view reason() const { return reason_; }
  [[nodiscard]] bool sawHello() const { return sawHello_; }

  /// Why the hello that came does not fit ours; empty if it does.
  [[nodiscard]] std::string mismatchWith(const Hello& ours) const;
  /// Decodes the arguments of the message or request that came into `values`, which must be empty.
  /// A call that the protocol does not know is malformed.
  [[nodiscard]] ValuesResult decodeCall(const InterfaceTable& exported, XPCValues& values) const;
  /// The same for the values of a reply.
  [[nodiscard]] ValuesResult decodeReply(const std::vector<ArgumentRule>& rules,
                                         XPCValues& values) const;

  /// For the next stream.
  void reset() { *this = {}; }

 private:
  Outcome breach(std::string_view reason);
  Outcome checkCall();
  Outcome checkOther();
  Outcome checkReplyDropped();
  /// The ID in front of the values; 0 if it is cut short.
  void takeID();

  Frame frame_;
  std::size_t size_ = 0;
  std::string_view reason_;  ///< a constant
  bool sawHello_ = false;
};

}  // namespace platform::xpc
