// SPDX-License-Identifier: Apache-2.0

// Starts the detached threads of the layer.
//
// Threading: any thread.
// Ownership: the thread owns `body` and destroys it before it ends; a prepared thread that is never
//   started ends with its owner.
// Errors: false, or an empty object, if the system has no thread or memory left.
#pragma once

#include <functional>
#include <memory>

namespace platform::xpc {

/// Signals are blocked in the thread, since they belong to the application's own threads; its own
/// faults are not.
bool startDetachedThread(const char* name, std::function<void()> body);

/// The same without allocating memory: the thread calls `entry` with `context` and has no name yet.
bool startDetachedThread(void* (*entry)(void*), void* context);
void nameThisThread(const char* name);

/// A thread that is ready: starting work on it cannot fail.
class PreparedThread {
 public:
  PreparedThread() = default;
  /// Empty if no thread is available.
  [[nodiscard]] static PreparedThread make() noexcept;
  PreparedThread(PreparedThread&&) noexcept = default;
  PreparedThread& operator=(PreparedThread&& other) noexcept;
  PreparedThread(const PreparedThread&) = delete;
  PreparedThread& operator=(const PreparedThread&) = delete;
  ~PreparedThread();

  explicit operator bool() const { return task_ != nullptr; }
  /// Makes it call `entry` with `context`; this object is empty afterwards.
  void begin(void* (*entry)(void*), void* context) noexcept;

 private:
  struct Task;
  static void* waitForTask(void* task);
  std::shared_ptr<Task> task_;
};

}  // namespace platform::xpc
