// SPDX-License-Identifier: Apache-2.0

// How a message protocol is described to the connection layer: its methods, their argument types,
// how to call them on an object and how to create a proxy.
//
// A protocol is an abstract C++ class with one static function, protocol(), that returns its
// XPCProtocol. Methods are pure virtual, return void and take std::uint32_t, std::uint64_t or
// std::shared_ptr to a platform class; a method with a reply takes an XPCReply<…> as its last
// argument, a callable that the receiver calls at most once. XPCTraits.h derives the description
// from that.
//
// Threading: descriptions are immutable. A proxy may be used from any thread.
// Ownership: a proxy holds its connection's sending end, not the connection object; sending on a
//   connection that no longer exists calls the error handler.
// Errors: see NSXPCConnection.h.
// Order: messages sent through proxies of one connection arrive in the order of sending.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"

namespace platform {

enum class XPCArgumentKind : std::uint8_t { UInt32, UInt64, Object };

struct XPCArgument {
  XPCArgumentKind kind = XPCArgumentKind::Object;
  /// For objects: the class that is admitted unless an allow-list says otherwise.
  const NSClass* declaredClass = nullptr;
  /// For arrays: the class of the members; no allow-list admits others. Null if the protocol does
  /// not declare one.
  const NSClass* memberClass = nullptr;
};

inline constexpr std::size_t kXPCMaxArguments = 6;

struct XPCMethod {
  std::string_view selector;  ///< "receivedData:forReportID:"
  std::span<const XPCArgument> arguments;
  bool hasReply = false;
  std::span<const XPCArgument> replyArguments;
};

using XPCValue = std::variant<std::uint32_t, std::uint64_t, std::shared_ptr<NSObject>>;

/// Arguments of one message or reply, without an allocation of their own.
struct XPCValues {
  std::array<XPCValue, kXPCMaxArguments> values;
  std::size_t count = 0;
  void append(XPCValue value) { values.at(count++) = std::move(value); }
};

/// A reference to one of the sender's arguments, for the duration of a call: nothing is shared or
/// copied unless somebody asks for the value.
class XPCArgumentRef {
 public:
  XPCArgumentRef(std::uint32_t number) : kind_(XPCArgumentKind::UInt32), number_(number) {}
  XPCArgumentRef(std::uint64_t number) : kind_(XPCArgumentKind::UInt64), number_(number) {}
  template <class T>
  XPCArgumentRef(const std::shared_ptr<T>& object)
      : kind_(XPCArgumentKind::Object), object_(object.get()), owner_(&object), share_(&share<T>) {}

  [[nodiscard]] XPCArgumentKind kind() const { return kind_; }
  [[nodiscard]] std::uint64_t number() const { return number_; }
  [[nodiscard]] const NSObject* object() const { return object_; }
  [[nodiscard]] XPCValue value() const {
    if (kind_ == XPCArgumentKind::Object) return share_(owner_);
    if (kind_ == XPCArgumentKind::UInt64) return number_;
    return static_cast<std::uint32_t>(number_);
  }

 private:
  template <class T>
  static std::shared_ptr<NSObject> share(const void* owner) {
    return *static_cast<const std::shared_ptr<T>*>(owner);
  }

  XPCArgumentKind kind_;
  std::uint64_t number_ = 0;
  const NSObject* object_ = nullptr;
  const void* owner_ = nullptr;
  std::shared_ptr<NSObject> (*share_)(const void* owner) = nullptr;
};

/// The last parameter of a method that has a reply.
template <class... Arguments>
using XPCReply = std::function<void(Arguments...)>;

/// What a receiver calls to reply. Copyable; the first call sends, later ones do nothing. If all
/// copies go away unused, the sender's error handler runs.
using XPCReplySender = std::function<void(const XPCValues&)>;
/// What the sender's reply is passed to.
using XPCReplyHandler = std::function<void(const XPCValues&)>;
using XPCErrorHandler = std::function<void(const std::shared_ptr<NSError>&)>;

/// The sending end that a proxy writes to.
class XPCMessageSink {
 public:
  virtual ~XPCMessageSink() = default;
  /// `method` is the index in the protocol's methods. `reply` is empty for a method without a
  /// reply. Never blocks and never calls `reply` or the error handler before it returns.
  virtual void send(std::size_t method, const XPCValues& arguments, XPCReplyHandler reply) = 0;
  /// Like send, but without a reply, and for a sink that needs the arguments only during the call.
  virtual void sendMessage(std::size_t method, std::span<const XPCArgumentRef> arguments) {
    XPCValues values;
    for (const XPCArgumentRef& argument : arguments) values.append(argument.value());
    send(method, values, {});
  }
};

struct XPCProtocol {
  std::string_view name;
  std::span<const XPCMethod> methods;
  /// Calls method number `method` on `object`, which points to the protocol's own C++ class (not to
  /// NSObject).
  void (*invoke)(void* object, std::size_t method, const XPCValues& arguments,
                 const XPCReplySender& reply) = nullptr;
  /// Creates a proxy: a pointer to the protocol's own C++ class.
  std::shared_ptr<void> (*makeProxy)(std::shared_ptr<XPCMessageSink> sink) = nullptr;

  /// Like invoke, but moves the objects out of `arguments` instead of sharing them, which saves two
  /// atomic counts for each.
  void (*invokeTaking)(void* object, std::size_t method, XPCValues& arguments,
                       const XPCReplySender& reply) = nullptr;

  /// The index of a selector; throws std::invalid_argument for an unknown one.
  [[nodiscard]] std::size_t indexOfSelector(std::string_view selector) const;
};

}  // namespace platform
