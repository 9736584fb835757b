// Installing the router through the framework.
//
// Threading: the main thread, which is blocked while the authorization question is open.
// Ownership: nothing is kept.
// Errors: Failure, with the reason in words.
#pragma once

#include <memory>

#include "platform/foundation/NSString.h"

namespace tool {

/// `prompt` null: the platform's own text.
void installRouter(const std::shared_ptr<platform::NSString>& prompt);

}  // namespace tool
