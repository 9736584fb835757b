// SPDX-License-Identifier: Apache-2.0

// `override` catches a method that would hide the delegate's instead of overriding it.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_handleError(const ErrorPointer&) override {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
