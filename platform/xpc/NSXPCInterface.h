// SPDX-License-Identifier: Apache-2.0

// A protocol together with the classes that a connection may decode for each of its object
// arguments.
//
// Threading: set up by one thread before it is given to a connection; read-only from then on.
// Errors: std::invalid_argument for a selector or index that the protocol does not have.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "platform/foundation/NSObject.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform {

using NSClassSet = std::vector<const NSClass*>;

class NSXPCInterface {
 public:
  /// Null only on a scripted platform told to return null. Goes through the XPC provider.
  static std::shared_ptr<NSXPCInterface> interfaceWithProtocol(const XPCProtocol& protocol);

  virtual ~NSXPCInterface() = default;
  /// Replaces the whole set for one argument of a message, or of its reply. An object is admitted
  /// if its class is in the set or derives from one in it; the same applies to everything inside
  /// it. If the protocol declares the class of an array's members, they must match that as well.
  virtual void setClasses_forSelector_argumentIndex_ofReply(const NSClassSet& classes,
                                                            std::string_view selector,
                                                            std::size_t argumentIndex,
                                                            bool ofReply);
  [[nodiscard]] const XPCProtocol& protocol() const { return protocol_; }
  /// The set in force. By default the declared class, for collections and errors together with the
  /// property-list classes.
  [[nodiscard]] const NSClassSet& classesForMethod(std::size_t method, std::size_t argumentIndex,
                                                   bool ofReply) const;

  /// The sets of all arguments, in order.
  [[nodiscard]] std::span<const NSClassSet> classesForMethod(std::size_t method,
                                                             bool ofReply) const;

  explicit NSXPCInterface(const XPCProtocol& protocol);

 private:
  struct Slots {
    std::vector<NSClassSet> arguments;
    std::vector<NSClassSet> reply;
  };
  const XPCProtocol& protocol_;
  std::vector<Slots> slots_;
};

}  // namespace platform
