// With an overload beside it nobody can say which is meant.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_handleError(const ClientPointer&, const ErrorPointer&) override {}
  void hidEventRouterClient_handleError(int) {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
