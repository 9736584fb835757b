// SPDX-License-Identifier: Apache-2.0

#include "platform/system/SystemBus.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <system_error>

namespace platform::system {
namespace {

/// So many messages are processed before jobs and timers get their turn again.
constexpr int kMessagesAtOnce = 64;
constexpr SystemBus::Clock::duration kLongestWait = std::chrono::hours(1);

/// Signals belong to the program's own threads; a thread started meanwhile gets only its faults.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    ::sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
      ::sigdelset(&all, fault);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

/// Something that one thread waits for and another one reports.
class Done {
 public:
  void report() {
    const std::lock_guard lock(mutex_);
    isDone_ = true;
    changed_.notify_all();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return isDone_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isDone_ = false;
};

}  // namespace

SystemBus::SystemBus(Options options)
    : options_(std::move(options)),
      wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      nextBreak_(options_.firstBreak) {
  if (!wakeUp_) throw std::system_error(errno, std::generic_category(), "eventfd");
  const SignalsBlocked blocked;
  thread_ = std::thread([this] { runThread(); });
}

SystemBus::~SystemBus() {
  isEnding_.store(true);
  wake();
  thread_.join();
}

void SystemBus::post(std::function<void()> job) {
  {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
  }
  wake();
}

void SystemBus::run(const std::function<void()>& job) {
  if (isOnItsThread()) return job();
  const auto done = std::make_shared<Done>();
  post([&job, done] {
    job();
    done->report();
  });
  done->wait();
}

bool SystemBus::isOnItsThread() const {
  return std::this_thread::get_id() == thread_.get_id();
}

void SystemBus::wake() const {
  const std::uint64_t one = 1;
  // Fails only after 2^64 calls.
  [[maybe_unused]] const ssize_t written = ::write(wakeUp_.get(), &one, sizeof one);
}

// ---- The thread

void SystemBus::runThread() {
  ::pthread_setname_np(::pthread_self(), "system-bus");
  connect();
  while (!isEnding_.load()) {
    runJobs();
    runTimers();
    if (!processBus()) wait();
  }
  if (connection_) lose();
  while (runJobs()) {
  }
}

bool SystemBus::runJobs() {
  std::vector<std::function<void()>> jobs;
  {
    const std::lock_guard lock(mutex_);
    jobs.swap(jobs_);
  }
  for (std::function<void()>& job : jobs) {
    job();
    job = nullptr;  // what it holds goes before the next one runs
  }
  return !jobs.empty();
}

void SystemBus::runTimers() {
  const Clock::time_point now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first <= now) {
    const auto due = timers_.extract(timers_.begin());
    due.mapped().second();
  }
}

bool SystemBus::processBus() {
  for (int i = 0; i < kMessagesAtOnce; ++i) {
    if (!connection_) return false;
    const int result = sd_bus_process(connection_.get(), nullptr);
    if (result == 0) return false;
    if (result < 0) {
      lose();
      return false;
    }
    if (sd_bus_is_ready(connection_.get()) > 0) nextBreak_ = options_.firstBreak;
  }
  return true;
}

void SystemBus::wait() {
  std::vector<pollfd> polled{{wakeUp_.get(), POLLIN, 0}};
  polled.reserve(watched_.size() + 2);
  for (const auto& [descriptor, readable] : watched_) polled.push_back({descriptor, POLLIN, 0});
  if (connection_) {
    const int events = sd_bus_get_events(connection_.get());
    const int descriptor = sd_bus_get_fd(connection_.get());
    if (events >= 0 && descriptor >= 0)
      polled.push_back({descriptor, static_cast<short>(events), 0});
  }
  const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(timeLeft());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const timespec timeout{static_cast<time_t>(seconds.count()),
                         static_cast<long>((left - seconds).count())};
  if (::ppoll(polled.data(), polled.size(), &timeout, nullptr) <= 0) return;
  drainWakeUps();
  std::vector<int> readable;
  for (std::size_t i = 1; i <= watched_.size(); ++i)
    if (polled[i].revents != 0) readable.push_back(polled[i].fd);
  callReadable(readable);
}

SystemBus::Clock::duration SystemBus::timeLeft() const {
  using std::chrono::microseconds;
  Clock::time_point until = Clock::now() + kLongestWait;
  if (!timers_.empty()) until = std::min(until, timers_.begin()->first);
  std::uint64_t busUntil = UINT64_MAX;
  if (connection_ && sd_bus_get_timeout(connection_.get(), &busUntil) >= 0 &&
      busUntil <= static_cast<std::uint64_t>(INT64_MAX) / 1000)
    until = std::min(until, Clock::time_point(microseconds(static_cast<long long>(busUntil))));
  return std::max(until - Clock::now(), Clock::duration::zero());
}

void SystemBus::drainWakeUps() const {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t got = ::read(wakeUp_.get(), &count, sizeof count);
}

void SystemBus::callReadable(const std::vector<int>& descriptors) {
  for (const int descriptor : descriptors) {
    const auto found = watched_.find(descriptor);
    if (found == watched_.end()) continue;  // an earlier handler has ended the watch
    const std::function<void()> readable = found->second;
    readable();
  }
}

// ---- The connection

void SystemBus::connect() {
  BusConnection connection;
  if (start(connection)) {
    connection_ = std::move(connection);
    tell(true);
    return;
  }
  callAfter(nextBreak_, [this] { connect(); });
  nextBreak_ = std::min(nextBreak_ * 2, options_.longestBreak);
}

/// Everything up to the first message; the rest happens while the bus is processed.
bool SystemBus::start(BusConnection& connection) const {
  sd_bus* made = nullptr;
  if (sd_bus_new(&made) < 0) return false;
  connection.reset(made);
  return sd_bus_set_address(made, options_.address.c_str()) >= 0 &&
         sd_bus_set_bus_client(made, 1) >= 0 && sd_bus_start(made) >= 0;
}

void SystemBus::lose() {
  // The listeners let go of what belongs to the connection, which is closed then.
  const BusConnection lost = std::move(connection_);
  tell(false);
  if (isEnding_.load()) return;
  callAfter(nextBreak_, [this] { connect(); });
  nextBreak_ = std::min(nextBreak_ * 2, options_.longestBreak);
}

void SystemBus::tell(bool isConnected) {
  std::vector<ListenerID> known;
  known.reserve(listeners_.size());
  for (const auto& [id, changed] : listeners_) known.push_back(id);
  for (const ListenerID id : known) {
    const auto found = listeners_.find(id);
    if (found == listeners_.end()) continue;  // an earlier one has removed it
    const std::function<void(bool)> changed = found->second;
    changed(isConnected);
  }
}

SystemBus::ListenerID SystemBus::listen(const std::function<void(bool)>& changed) {
  const auto id = static_cast<ListenerID>(++lastID_);
  listeners_[id] = changed;
  if (connection_) changed(true);
  return id;
}

void SystemBus::unlisten(ListenerID listener) {
  listeners_.erase(listener);
}

SystemBus::TimerID SystemBus::callAfter(Clock::duration delay, std::function<void()> handler) {
  const auto id = static_cast<TimerID>(++lastID_);
  timers_.emplace(Clock::now() + delay, std::pair(id, std::move(handler)));
  return id;
}

void SystemBus::cancel(TimerID timer) {
  std::erase_if(timers_, [&](const auto& each) { return each.second.first == timer; });
}

void SystemBus::watch(int descriptor, std::function<void()> readable) {
  watched_[descriptor] = std::move(readable);
}

void SystemBus::unwatch(int descriptor) {
  watched_.erase(descriptor);
}

}  // namespace platform::system
