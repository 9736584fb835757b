// Starts the detached threads of the layer.
//
// Threading: any thread.
// Ownership: the thread owns `body` and destroys it before it ends; a prepared thread that is never
//   begun ends with its owner.
// Errors: false, or an empty one, when the system has no thread or memory to give.
#pragma once

#include <functional>
#include <memory>

namespace platform::xpc {

/// Signals are blocked in the thread, for they belong to the application's own threads; faults of
/// its own are not.
bool startDetachedThread(const char* name, std::function<void()> body);

/// The same without memory of its own: the thread calls `entry` with `context` and has no name yet.
bool startDetachedThread(void* (*entry)(void*), void* context);
void nameThisThread(const char* name);

/// A thread that stands ready: what is begun on it cannot fail for want of one.
class PreparedThread {
 public:
  PreparedThread() = default;
  /// Empty where there is none to be had.
  [[nodiscard]] static PreparedThread make() noexcept;
  PreparedThread(PreparedThread&&) noexcept = default;
  PreparedThread& operator=(PreparedThread&& other) noexcept;
  PreparedThread(const PreparedThread&) = delete;
  PreparedThread& operator=(const PreparedThread&) = delete;
  ~PreparedThread();

  explicit operator bool() const { return task_ != nullptr; }
  /// Has it call `entry` with `context`; it is empty from then on.
  void begin(void* (*entry)(void*), void* context) noexcept;

 private:
  struct Task;
  static void* waitForTask(void* task);
  std::shared_ptr<Task> task_;
};

}  // namespace platform::xpc
