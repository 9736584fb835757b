// SPDX-License-Identifier: Apache-2.0

// Having the methods is not enough.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final {
 public:
  void hidEventRouterClient_handleError(const ClientPointer&, const ErrorPointer&) {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
