#include "router-client/DelegateReference.h"

#include <utility>

namespace wlhid {

void DelegateReference::store(std::weak_ptr<WLHIDEventRouterClientDelegate> delegate,
                              DelegateMethods methods) {
  // A question between the two stores sees the old delegate with the new answers. At worst it calls
  // a method that the old one doesn't override, whose body in the base is empty.
  methods_.store(methods);
  delegate_.exchange(std::move(delegate));
}

bool DelegateReference::askDelegate(WLHIDEventRouterClientDelegateMethod method) const {
  const auto delegate = load();
  return delegate != nullptr && delegate->respondsToSelector(method);
}

}  // namespace wlhid
