// Which optional methods a delegate class implements, found when the program is compiled.
//
// Threading: compile time.
// Ownership, Order: none.
// Errors: a program that gets a method wrong does not compile. Naming &D::method makes a private or
//   protected override and an ambiguous overload errors by themselves; another signature, which
//   would hide the method instead of overriding it, and a class that overrides nothing, which is a
//   misspelled one as a rule, are refused with a sentence.
#pragma once

#include <cstdint>
#include <type_traits>

#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"

namespace wlhid {

/// A pointer to member function without its class and its noexcept: what two methods must share for
/// one to override the other. `void` for anything else, also for the qualifiers that the delegate's
/// methods never have.
template <class T>
struct MethodSignature {
  using type = void;
};
template <class R, class C, class... A>
struct MethodSignature<R (C::*)(A...)> {
  using type = R(A...);
};
template <class R, class C, class... A>
struct MethodSignature<R (C::*)(A...) noexcept> {
  using type = R(A...);
};
template <class R, class C, class... A>
struct MethodSignature<R (C::*)(A...) const> {
  using type = R(A...) const;
};
template <class R, class C, class... A>
struct MethodSignature<R (C::*)(A...) const noexcept> {
  using type = R(A...) const;
};

/// Whether `Member` (the type of &D::method) is an override of `Base` (the type of &Base::method).
/// A method that D only inherits from the base still has the base's type.
template <class Member, class Base>
consteval bool overrides() {
  if constexpr (std::is_same_v<Member, Base>) {
    return false;
  } else {
    static_assert(std::is_same_v<typename MethodSignature<Member>::type,
                                 typename MethodSignature<Base>::type>,
                  "a delegate method has the right name but another signature: it hides the method "
                  "and would never be "
                  "called; mark it override");
    return true;
  }
}

/// The answers for one delegate, in one word.
class DelegateMethods {
 public:
  constexpr DelegateMethods() = default;

  constexpr void add(WLHIDEventRouterClientDelegateMethod method) { bits_ |= bit(method); }
  [[nodiscard]] constexpr bool contains(WLHIDEventRouterClientDelegateMethod method) const {
    return (bits_ & bit(method)) != 0;
  }
  /// The delegate has its own respondsToSelector: the four answers here don't count.
  constexpr void setAnswersItself() { bits_ |= kAnswersItself; }
  [[nodiscard]] constexpr bool answersItself() const { return (bits_ & kAnswersItself) != 0; }
  [[nodiscard]] constexpr bool empty() const { return bits_ == 0; }

 private:
  static constexpr std::uint8_t kAnswersItself = 1U << 7;
  static constexpr std::uint8_t bit(WLHIDEventRouterClientDelegateMethod method) {
    return static_cast<std::uint8_t>(1U << static_cast<unsigned>(method));
  }
  std::uint8_t bits_ = 0;
};

template <class D>
consteval DelegateMethods delegateMethodsOf() {
  using Base = WLHIDEventRouterClientDelegate;
  using enum WLHIDEventRouterClientDelegateMethod;
  static_assert(std::is_base_of_v<Base, D>,
                "a delegate derives from WLHIDEventRouterClientDelegate");

  DelegateMethods methods;
  if (overrides<decltype(&D::hidEventRouterClient_clientStatusChangedTo),
                decltype(&Base::hidEventRouterClient_clientStatusChangedTo)>()) {
    methods.add(clientStatusChangedTo);
  }
  if (overrides<decltype(&D::hidEventRouterClient_handleError),
                decltype(&Base::hidEventRouterClient_handleError)>()) {
    methods.add(handleError);
  }
  if (overrides<decltype(&D::hidEventRouterClient_receivedElementValues),
                decltype(&Base::hidEventRouterClient_receivedElementValues)>()) {
    methods.add(receivedElementValues);
  }
  if (overrides<decltype(&D::hidEventRouterClient_receivedReportData_reportID),
                decltype(&Base::hidEventRouterClient_receivedReportData_reportID)>()) {
    methods.add(receivedReportData_reportID);
  }
  if (overrides<decltype(&D::respondsToSelector), decltype(&Base::respondsToSelector)>()) {
    methods.setAnswersItself();
  }
  return methods;
}

}  // namespace wlhid
