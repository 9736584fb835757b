// A private override would never be found.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 private:
  void hidEventRouterClient_handleError(const ClientPointer&, const ErrorPointer&) override {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
