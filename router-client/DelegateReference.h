// The client's weak reference to its delegate, and what that delegate implements.
//
// Threading: any thread. Each question looks at the reference as it is at that moment. Nothing is
//   called under the lock.
// Ownership: weak.
// Errors: none.
// Order: of a store and a question on two threads either may come first.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "router-client/DelegateMethods.h"
#include "router-client/Holder.h"

namespace wlhid {

class DelegateReference {
 public:
  void store(std::weak_ptr<WLHIDEventRouterClientDelegate> delegate, DelegateMethods methods);

  /// Null once the delegate is gone.
  [[nodiscard]] std::shared_ptr<WLHIDEventRouterClientDelegate> load() const {
    return current().lock();
  }

  /// Whether there is a delegate and it implements `method`: two questions, each of the reference
  /// as it then is.
  [[nodiscard]] bool isPresentAndRespondsTo(WLHIDEventRouterClientDelegateMethod method) const {
    return isPresent() && respondsTo(method);
  }

 private:
  using Weak = std::weak_ptr<WLHIDEventRouterClientDelegate>;

  /// The reference as it is now, in this thread's own copy: a thread that asks again and again, as
  /// each report makes it do, takes the lock only after a store.
  [[nodiscard]] const Weak& current() const;
  [[nodiscard]] bool isPresent() const { return !current().expired(); }
  [[nodiscard]] bool respondsTo(WLHIDEventRouterClientDelegateMethod method) const {
    const DelegateMethods methods = methods_.load();
    return methods.answersItself() ? askDelegate(method) : methods.contains(method);
  }
  [[nodiscard]] bool askDelegate(WLHIDEventRouterClientDelegateMethod method) const;

  Holder<Weak> delegate_;
  std::atomic<std::uint64_t> version_{0};  ///< of delegate_; no two references share one but 0
  std::atomic<DelegateMethods> methods_{DelegateMethods()};
};

}  // namespace wlhid
