// SPDX-License-Identifier: Apache-2.0

// Locks a login session as a screen locker does, and says when: starting a shell's tools would take
// longer than what is to be measured.
#include <systemd/sd-bus.h>
#include <time.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "tests/vm/programs/Program.h"

namespace vm {
namespace {

constexpr std::string_view kUsage =
    "usage: lock-session SESSION\n"
    "Tells logind that a session is locked, and prints \"SECONDS\": when it was told, by the "
    "clock\n"
    "of node-reader.\n";

struct Closing {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
  void operator()(char* text) const { std::free(text); }
};

void check(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

std::string now() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%lld.%06ld", static_cast<long long>(time.tv_sec),
                time.tv_nsec / 1000);
  return text.data();
}

void serve(const std::vector<std::string>& arguments) {
  if (arguments.size() != 1) throw UsageError();
  sd_bus* opened = nullptr;
  check(sd_bus_open_system(&opened), "the system bus");
  const std::unique_ptr<sd_bus, Closing> bus(opened);
  char* encoded = nullptr;
  check(sd_bus_path_encode("/org/freedesktop/login1/session", arguments[0].c_str(), &encoded),
        "the session's path");
  const std::unique_ptr<char, Closing> path(encoded);
  // The connection is ready only after an answer.
  check(sd_bus_call_method(bus.get(), "org.freedesktop.login1", "/org/freedesktop/login1",
                           "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, ""),
        "logind");
  const std::string before = now();
  check(sd_bus_call_method(bus.get(), "org.freedesktop.login1", path.get(),
                           "org.freedesktop.login1.Session", "SetLockedHint", nullptr, nullptr, "b",
                           1),
        "SetLockedHint");
  say(before);
}

}  // namespace
}  // namespace vm

int main(int argc, char** argv) {
  return vm::run(vm::serve, argc, argv, vm::kUsage);
}
