// The base class itself knows of no override.
#include "tests/unit/router-client/compile-fail/Common.h"

template void use<WLHIDEventRouterClientDelegate>(WLHIDEventRouterClient&);
