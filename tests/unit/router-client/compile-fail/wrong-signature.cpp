// Without `override` this hides the method instead of overriding it.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_handleError(const ErrorPointer&) {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
