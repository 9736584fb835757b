// A misspelled method leaves a delegate that overrides nothing.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_handlesError(const ClientPointer&, const ErrorPointer&) {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
