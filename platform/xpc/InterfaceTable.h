// SPDX-License-Identifier: Apache-2.0

// An interface prepared for the wire: which tags each argument of each method may have.
//
// Threading: immutable after creation.
// Ownership: shared by a connection's queue and its proxies; keeps the interface alive.
// Errors: as ObjectCoder.h.
// Order: arguments are in declaration order.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/xpc/NSXPCInterface.h"
#include "platform/xpc/ObjectCoder.h"
#include "platform/xpc/Wire.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform::xpc {

struct ArgumentRule {
  XPCArgumentKind kind = XPCArgumentKind::Object;
  TagSet outermost = 0;
  TagSet inside = 0;
};

struct MethodRules {
  bool hasReply = false;
  std::vector<ArgumentRule> arguments;
  std::vector<ArgumentRule> reply;
};

class InterfaceTable {
 public:
  explicit InterfaceTable(std::shared_ptr<NSXPCInterface> interface);

  [[nodiscard]] const XPCProtocol& protocol() const { return interface_->protocol(); }
  [[nodiscard]] const std::vector<MethodRules>& methods() const { return methods_; }

 private:
  std::shared_ptr<NSXPCInterface> interface_;
  std::vector<MethodRules> methods_;
};

/// Appends the values. Throws EncodingError.
void encodeValues(WireWriter& writer, const XPCValues& values);
void encodeValues(WireWriter& writer, std::span<const XPCArgumentRef> arguments);

struct ValuesResult {
  DecodeVerdict verdict = DecodeVerdict::Accepted;
  std::size_t argument = 0;  ///< the one that failed
  std::string_view reason = {};
};

/// Reads exactly the values that `rules` describe, up to the end of the bytes, into `values`, which
/// must be empty.
ValuesResult decodeValues(WireReader& reader, const std::vector<ArgumentRule>& rules,
                          XPCValues& values);

/// Releases the objects but keeps the storage.
void clearValues(XPCValues& values);

}  // namespace platform::xpc
