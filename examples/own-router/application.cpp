// SPDX-License-Identifier: Apache-2.0

// An application that brings a router of its own: it installs it, asking in its own way, and
// prints twenty turns of the dial that this router has. On a user's own root; on the system's own
// a router has to be signed (wlhid sign).
#include <condition_variable>
#include <iostream>
#include <mutex>

#include "WLHIDAccess/Input.h"

namespace {

constexpr std::uint64_t kDial = 0x2a;

wlhid::Consent ask(const std::string& prompt) {
  std::cout << prompt << " [y/n] " << std::flush;
  std::string answer;
  if (!std::getline(std::cin, answer)) return wlhid::Consent::Canceled;
  return answer == "y" ? wlhid::Consent::Given : wlhid::Consent::Denied;
}

/// Waited for by the main thread, counted on one of the library's.
class Turns {
 public:
  void received(std::span<const wlhid::Value> values) {
    std::cout << values.front().usage.name() << ' ' << values.front().value << std::endl;
    const std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_all();
  }
  void waitFor(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return count_ >= count; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

}  // namespace

int main() {
  wlhid::Router::setConsentAgent(ask);
  try {
    if (!wlhid::Router::presence()) wlhid::Router::install("May the dial's router be installed?");
  } catch (const wlhid::Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
  Turns turns;
  const wlhid::Input dial({.device = kDial},
                          {.values = [&](auto values) { turns.received(values); }});
  turns.waitFor(20);
}
