// Starts the detached threads of the layer.
//
// Threading: any thread. Ownership: the thread owns `body` and destroys it before it ends. Errors:
// false when the system has no thread to give. Order: none.
#pragma once

#include <functional>

namespace platform::xpc {

/// Signals are blocked in the thread, for they belong to the application's own threads; faults of
/// its own are not.
bool startDetachedThread(const char* name, std::function<void()> body);

/// The same without memory of its own: the thread calls `entry` with `context` and has no name yet.
bool startDetachedThread(void* (*entry)(void*), void* context);
void nameThisThread(const char* name);

}  // namespace platform::xpc
