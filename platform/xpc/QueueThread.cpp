// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/QueueThread.h"

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <exception>
#include <utility>

namespace platform::xpc {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define WLHID_FRAMES_ARE_LARGE 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define WLHID_FRAMES_ARE_LARGE 1
#endif
#endif

/// Enough for a delegate that does real work; until it is used it takes only address space. A
/// sanitizer makes stack frames several times as large.
#ifdef WLHID_FRAMES_ARE_LARGE
constexpr std::size_t kStackSize = std::size_t{4} << 20;
#else
constexpr std::size_t kStackSize = std::size_t{512} << 10;
#endif

struct Start {
  const char* name;
  std::function<void()> body;
};

void* run(void* argument) {
  const std::unique_ptr<Start> start(static_cast<Start*>(argument));
  nameThisThread(start->name);
  start->body();
  return nullptr;
}

}  // namespace

void nameThisThread(const char* name) {
  ::pthread_setname_np(::pthread_self(), name);
}

bool startDetachedThread(void* (*entry)(void*), void* context) {
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  ::pthread_attr_setstacksize(&attributes, kStackSize);
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
    ::sigdelset(&all, fault);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  const int error = ::pthread_create(&thread, &attributes, entry, context);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::pthread_attr_destroy(&attributes);
  return error == 0;
}

bool startDetachedThread(const char* name, std::function<void()> body) {
  auto start = std::make_unique<Start>(Start{name, std::move(body)});
  if (!startDetachedThread(&run, start.get())) return false;
  static_cast<void>(start.release());  // now owned by the thread
  return true;
}

// -------------------------------------------------------------------------------------------------

struct PreparedThread::Task {
  using Entry = void* (*)(void*);

  std::shared_ptr<Task> keptForThread;  ///< until the thread has taken it
  std::atomic<bool> decided{false};
  Entry entry = nullptr;  ///< null: there is nothing to do
  void* context = nullptr;

  void decide(Entry toCall, void* with) noexcept {
    entry = toCall;
    context = with;
    decided.store(true);
    decided.notify_one();
  }
};

PreparedThread PreparedThread::make() noexcept {
  PreparedThread thread;
  try {
    thread.task_ = std::make_shared<Task>();
  } catch (const std::exception&) {
    return {};
  }
  Task* const task = thread.task_.get();
  task->keptForThread = thread.task_;
  if (startDetachedThread(&PreparedThread::waitForTask, task)) return thread;
  task->keptForThread.reset();
  thread.task_.reset();
  return thread;
}

void* PreparedThread::waitForTask(void* started) {
  std::shared_ptr<Task> task = std::move(static_cast<Task*>(started)->keptForThread);
  task->decided.wait(false);
  const Task::Entry entry = task->entry;
  void* const context = task->context;
  task.reset();
  return entry == nullptr ? nullptr : entry(context);
}

void PreparedThread::begin(void* (*entry)(void*), void* context) noexcept {
  task_->decide(entry, context);
  task_.reset();
}

PreparedThread& PreparedThread::operator=(PreparedThread&& other) noexcept {
  std::swap(task_, other.task_);
  return *this;
}

PreparedThread::~PreparedThread() {
  if (task_) task_->decide(nullptr, nullptr);
}

}  // namespace platform::xpc
