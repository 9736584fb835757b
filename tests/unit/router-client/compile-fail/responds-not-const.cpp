// A respondsToSelector that is not const would never be asked.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  bool respondsToSelector(WLHIDEventRouterClientDelegateMethod) { return true; }
};
template void use<Delegate>(WLHIDEventRouterClient&);
