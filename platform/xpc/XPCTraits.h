// SPDX-License-Identifier: Apache-2.0

// Derives a protocol's description from its C++ class, so that a protocol is declared in a few
// lines:
//
//   using Methods = XPCMethodList<Greeter, &Greeter::greet, &Greeter::stop>;
//
//   class GreeterProxy final : public Greeter, XPCProxy<Methods> {
//    public:
//     using XPCProxy::XPCProxy;
//     void greet(const std::shared_ptr<NSString>& name,
//                XPCReply<const std::shared_ptr<NSString>&> reply) override {
//       message<&Greeter::greet>(name, std::move(reply));
//     }
//     void stop() override { message<&Greeter::stop>(); }
//   };
//
//   const XPCProtocol& Greeter::protocol() {
//     return xpcProtocol<Methods, GreeterProxy>("Greeter", {"greet:reply:", "stop"});
//   }
//
// Threading: the descriptions are constant.
// Errors: a parameter type that cannot be sent is a compile error; an object of a class other than
//   the parameter's arrives as null.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/foundation/NSObject.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform {

/// The class of the members of an array that is argument number `Index` of a method. A protocol
/// declares it next to its list of methods:
///
///   template <>
///   struct XPCMembers<&Greeter::greetAll, 0> : XPCMembersAre<NSString> {};
template <auto Method, std::size_t Index>
struct XPCMembers {
  static const NSClass* memberClass() { return nullptr; }
};
template <class T>
struct XPCMembersAre {
  static const NSClass* memberClass() { return &T::classObject(); }
};

namespace xpc_detail {

template <class T>
struct ObjectPointer : std::false_type {};
template <class T>
struct ObjectPointer<std::shared_ptr<T>> : std::bool_constant<std::is_base_of_v<NSObject, T>> {
  using Class = T;
};

template <class T>
concept Travels =
    std::is_same_v<T, std::uint32_t> || std::is_same_v<T, std::uint64_t> || ObjectPointer<T>::value;

template <Travels T>
XPCArgument describeArgument() {
  if constexpr (std::is_same_v<T, std::uint32_t>) {
    return {XPCArgumentKind::UInt32};
  } else if constexpr (std::is_same_v<T, std::uint64_t>) {
    return {XPCArgumentKind::UInt64};
  } else {
    return {XPCArgumentKind::Object, &ObjectPointer<T>::Class::classObject()};
  }
}

/// Compares the classes first and walks up only for a subclass.
inline bool isOfClass(const NSObject& object, const NSClass& wanted) {
  const NSClass& c = object.isa();
  return &c == &wanted || c.isSubclassOfClass(wanted);
}

/// The value as a `T`; zero or null if it is something else. An object is moved out of a value that
/// is not const.
template <Travels T, class Value>
T take(Value& value) {
  if constexpr (ObjectPointer<T>::value) {
    auto* const object = std::get_if<std::shared_ptr<NSObject>>(&value);
    using Class = typename ObjectPointer<T>::Class;
    if (object == nullptr || *object == nullptr || !isOfClass(**object, Class::classObject()))
      return nullptr;
    return std::static_pointer_cast<Class>(std::move(*object));
  } else {
    const auto* number = std::get_if<T>(&value);
    return number == nullptr ? T{} : *number;
  }
}

template <class... T>
struct Types {
  static constexpr std::size_t kCount = sizeof...(T);
  static_assert(kCount <= kXPCMaxArguments);

  static std::array<XPCArgument, kCount> describe() { return {describeArgument<T>()...}; }

  static XPCValues pack(const T&... arguments) {
    XPCValues values;
    (values.append(XPCValue(arguments)), ...);
    return values;
  }

  static std::array<XPCArgumentRef, kCount> refer(const T&... arguments) {
    return {XPCArgumentRef(arguments)...};
  }

  template <class Callable, class Values>
  static void call(Callable&& callable, Values& values) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      callable(take<T>(values.values[I])...);
    }
    (std::index_sequence_for<T...>{});
  }
};

template <class T>
struct ReplyCallable : std::false_type {};
template <class... A>
struct ReplyCallable<std::function<void(A...)>> : std::true_type {
  using Values = Types<std::remove_cvref_t<A>...>;
};

/// Splits a parameter list into the arguments and the reply, which may only come last.
template <class Before, class... Rest>
struct Split;
template <class... Before>
struct Split<Types<Before...>> {
  using Arguments = Types<Before...>;
  using Reply = void;
};
template <class... Before, class Next, class... Rest>
struct Split<Types<Before...>, Next, Rest...> : Split<Types<Before..., Next>, Rest...> {};
template <class... Before, class Last>
requires ReplyCallable<Last>::value struct Split<Types<Before...>, Last> {
  using Arguments = Types<Before...>;
  using Reply = Last;
};

template <class M>
struct MethodTraits;
template <class P, class... A>
struct MethodTraits<void (P::*)(A...)> {
  using Class = P;
  using Parts = Split<Types<>, std::remove_cvref_t<A>...>;
  using Arguments = typename Parts::Arguments;
  using Reply = typename Parts::Reply;
  static constexpr bool kHasReply = !std::is_void_v<Reply>;
};

template <auto Method>
using TraitsOf = MethodTraits<decltype(Method)>;

template <class Reply>
struct ReplyValues {
  using Type = typename ReplyCallable<Reply>::Values;
};
template <>
struct ReplyValues<void> {
  using Type = Types<>;
};
template <auto Method>
using ReplyTypes = typename ReplyValues<typename TraitsOf<Method>::Reply>::Type;

/// Calls one method with the values that arrived.
template <auto Method, class Values>
void invokeMethod(void* object, Values& values, const XPCReplySender& reply) {
  using Traits = TraitsOf<Method>;
  auto& target = *static_cast<typename Traits::Class*>(object);
  Traits::Arguments::call(
      [&](auto&&... arguments) {
        if constexpr (Traits::kHasReply) {
          (target.*Method)(std::move(arguments)..., [reply](auto&&... answer) {
            if (reply) reply(ReplyTypes<Method>::pack(answer...));
          });
        } else {
          (target.*Method)(std::move(arguments)...);
        }
      },
      values);
}

template <auto Method, std::size_t... I>
auto describeArguments(std::index_sequence<I...>) {
  auto described = TraitsOf<Method>::Arguments::describe();
  ((described[I].memberClass = XPCMembers<Method, I>::memberClass()), ...);
  return described;
}

template <auto Method>
std::span<const XPCArgument> argumentsOf() {
  static const auto described =
      describeArguments<Method>(std::make_index_sequence<TraitsOf<Method>::Arguments::kCount>{});
  return described;
}

template <auto Method>
std::span<const XPCArgument> replyArgumentsOf() {
  static const auto described = ReplyTypes<Method>::describe();
  return described;
}

template <auto A, auto B>
inline constexpr bool kSameMethod =
    std::is_same_v<std::integral_constant<decltype(A), A>, std::integral_constant<decltype(B), B>>;

}  // namespace xpc_detail

/// The methods of protocol class `P`, numbered in this order.
template <class P, auto... Methods>
struct XPCMethodList {
  using Class = P;
  static constexpr std::size_t kCount = sizeof...(Methods);

  template <auto Method>
  static constexpr std::size_t indexOf() {
    static_assert((xpc_detail::kSameMethod<Method, Methods> || ...),
                  "not a method of this protocol");
    std::size_t index = 0;
    std::size_t found = kCount;
    ((found = xpc_detail::kSameMethod<Method, Methods> ? index : found, ++index), ...);
    return found;
  }

  static std::array<XPCMethod, kCount> describe(
      const std::array<std::string_view, kCount>& selectors) {
    std::size_t index = 0;
    return {XPCMethod{selectors[index++], xpc_detail::argumentsOf<Methods>(),
                      xpc_detail::TraitsOf<Methods>::kHasReply,
                      xpc_detail::replyArgumentsOf<Methods>()}...};
  }

  template <class Values>
  static void invoke(void* object, std::size_t method, Values& arguments,
                     const XPCReplySender& reply) {
    using Invoker = void (*)(void*, Values&, const XPCReplySender&);
    static constexpr std::array<Invoker, kCount> invokers = {
        &xpc_detail::invokeMethod<Methods, Values>...};
    if (method < kCount) invokers[method](object, arguments, reply);
  }
};

/// The base of a proxy class (in addition to its protocol class).
template <class Methods>
class XPCProxy {
 public:
  explicit XPCProxy(std::shared_ptr<XPCMessageSink> sink) : sink_(std::move(sink)) {}

 protected:
  template <auto Method, class... A>
  void message(A&&... arguments) const {
    if constexpr (xpc_detail::TraitsOf<Method>::kHasReply) {
      request<Method>(std::forward_as_tuple(std::forward<A>(arguments)...),
                      std::make_index_sequence<sizeof...(A) - 1>{});
    } else {
      sink_->sendMessage(Methods::template indexOf<Method>(),
                         xpc_detail::TraitsOf<Method>::Arguments::refer(arguments...));
    }
  }

 private:
  template <auto Method, class Tuple, std::size_t... I>
  void request(Tuple&& all, std::index_sequence<I...>) const {
    using Traits = xpc_detail::TraitsOf<Method>;
    typename Traits::Reply reply = std::get<sizeof...(I)>(std::forward<Tuple>(all));
    sink_->send(Methods::template indexOf<Method>(), Traits::Arguments::pack(std::get<I>(all)...),
                [reply = std::move(reply)](const XPCValues& values) {
                  if (reply) xpc_detail::ReplyTypes<Method>::call(reply, values);
                });
  }

  std::shared_ptr<XPCMessageSink> sink_;
};

/// The description of a protocol: one for each pair of `Methods` and `Proxy`, created by the first
/// call and never destroyed.
template <class Methods, class Proxy>
const XPCProtocol& xpcProtocol(std::string_view name,
                               const std::array<std::string_view, Methods::kCount>& selectors) {
  static const auto methods = Methods::describe(selectors);
  static const XPCProtocol protocol{
      name, methods, &Methods::template invoke<const XPCValues>,
      [](std::shared_ptr<XPCMessageSink> sink) -> std::shared_ptr<void> {
        std::shared_ptr<typename Methods::Class> proxy = std::make_shared<Proxy>(std::move(sink));
        return proxy;
      },
      &Methods::template invoke<XPCValues>};
  return protocol;
}

}  // namespace platform
