// What the refused programs share. Each is a program that must not compile, and why, in its first
// line.
#pragma once

#include "WLHIDAccess/WLHIDAccess.h"

using ClientPointer = std::shared_ptr<WLHIDEventRouterClient>;
using ErrorPointer = std::shared_ptr<platform::NSError>;

template <class D>
void use(WLHIDEventRouterClient& client) {
  client.setDelegate(std::make_shared<D>());
}
