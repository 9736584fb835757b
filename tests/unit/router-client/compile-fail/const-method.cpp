// `const` makes another signature.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_handleError(const ClientPointer&, const ErrorPointer&) const {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
