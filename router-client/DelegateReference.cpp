#include "router-client/DelegateReference.h"

#include <utility>

namespace wlhid {
namespace {

/// Of all references together, so that a version tells which reference it belongs to as well.
std::atomic<std::uint64_t> storesSoFar{0};

}  // namespace

void DelegateReference::store(std::weak_ptr<WLHIDEventRouterClientDelegate> delegate,
                              DelegateMethods methods) {
  // A question between the two stores sees the old delegate with the new answers. At worst it calls
  // a method that the old one doesn't override, whose body in the base is empty.
  methods_.store(methods);
  delegate_.exchange(std::move(delegate));
  version_.store(storesSoFar.fetch_add(1) + 1);
}

const DelegateReference::Weak& DelegateReference::current() const {
  struct Copy {
    std::uint64_t version = 0;
    Weak delegate;
  };
  thread_local Copy copy;
  // Read before the reference: a store in between makes the copy newer than its version says, and
  // the next question copies again.
  const std::uint64_t version = version_.load();
  if (version != copy.version) copy = {version, delegate_.load()};
  return copy.delegate;
}

bool DelegateReference::askDelegate(WLHIDEventRouterClientDelegateMethod method) const {
  const auto delegate = load();
  return delegate != nullptr && delegate->respondsToSelector(method);
}

}  // namespace wlhid
