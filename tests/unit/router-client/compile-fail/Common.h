// SPDX-License-Identifier: Apache-2.0

// Shared by the programs that must not compile. Each one's first line says why it must not.
#pragma once

#include "WLHIDAccess/WLHIDAccess.h"

using ClientPointer = std::shared_ptr<WLHIDEventRouterClient>;
using ErrorPointer = std::shared_ptr<platform::NSError>;

template <class D>
void use(WLHIDEventRouterClient& client) {
  client.setDelegate(std::make_shared<D>());
}
