// SPDX-License-Identifier: Apache-2.0

// `override` catches a misspelled method.
#include "tests/unit/router-client/compile-fail/Common.h"

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_handlesError(const ClientPointer&, const ErrorPointer&) override {}
};
template void use<Delegate>(WLHIDEventRouterClient&);
