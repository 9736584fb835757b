// SPDX-License-Identifier: Apache-2.0

// Compiles: the control that the other programs differ from in one point each.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_handleError(const ClientPointer&, const ErrorPointer&) override {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
