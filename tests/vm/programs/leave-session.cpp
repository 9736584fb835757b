// SPDX-License-Identifier: Apache-2.0

// Takes somebody away from a login session, as a screen locker, a switch or a logout does, and says
// when: starting a shell's tools would take longer than what is to be measured.
#include <systemd/sd-bus.h>
#include <time.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tests/vm/programs/Program.h"

namespace vm {
namespace {

constexpr std::string_view kUsage =
    "usage: leave-session SESSION lock|switch OTHER|end\n"
    "Tells logind that a session is locked, that another one comes to the front, or to end it, "
    "and\n"
    "prints \"SECONDS\": when it was told, or when the session had ended, by the clock of "
    "node-reader.\n";

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

using Text = std::unique_ptr<char, decltype(&std::free)>;

Text pathOf(const std::string& session) {
  char* encoded = nullptr;
  check(sd_bus_path_encode("/org/freedesktop/login1/session", session.c_str(), &encoded),
        "the session's path");
  return {encoded, &std::free};
}

/// A method of one of logind's sessions; its one argument, if it has one, is true.
struct Call {
  std::string session;
  const char* method;
  bool hasFlag = false;
};

Call callFor(const std::vector<std::string>& arguments) {
  const std::size_t count = arguments.size();
  if (count == 2 && arguments[1] == "lock") return {arguments[0], "SetLockedHint", true};
  if (count == 2 && arguments[1] == "end") return {arguments[0], "Terminate"};
  if (count == 3 && arguments[1] == "switch") return {arguments[2], "Activate"};
  throw UsageError();
}

void send(sd_bus* bus, const Call& call) {
  const Text path = pathOf(call.session);
  check(sd_bus_call_method(bus, "org.freedesktop.login1", path.get(),
                           "org.freedesktop.login1.Session", call.method, nullptr, nullptr,
                           call.hasFlag ? "b" : "", 1),
        call.method);
}

int noteRemoval(sd_bus_message* message, void* seen, sd_bus_error* /*error*/) {
  const char* session = nullptr;
  auto& [wanted, when] = *static_cast<std::pair<std::string, std::string>*>(seen);
  if (sd_bus_message_read(message, "s", &session) >= 0 && wanted == session) when = now();
  return 0;
}

/// A session ends when its processes have, which logind sees to; a while after it was told to.
std::string awaitEnd(sd_bus* bus, const Call& call) {
  std::pair<std::string, std::string> seen{call.session, ""};
  check(
      sd_bus_match_signal(bus, nullptr, "org.freedesktop.login1", "/org/freedesktop/login1",
                          "org.freedesktop.login1.Manager", "SessionRemoved", &noteRemoval, &seen),
      "SessionRemoved");
  send(bus, call);
  while (seen.second.empty()) {
    const int processed = sd_bus_process(bus, nullptr);
    check(processed, "the system bus");
    if (processed == 0) check(sd_bus_wait(bus, UINT64_MAX), "the system bus");
  }
  return seen.second;
}

void serve(const std::vector<std::string>& arguments) {
  const Call call = callFor(arguments);
  sd_bus* opened = nullptr;
  check(sd_bus_open_system(&opened), "the system bus");
  const std::unique_ptr<sd_bus, Closing> bus(opened);
  // The connection is ready only after an answer.
  check(sd_bus_call_method(bus.get(), "org.freedesktop.login1", "/org/freedesktop/login1",
                           "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, ""),
        "logind");
  if (arguments[1] == "end") return say(awaitEnd(bus.get(), call));
  const std::string before = now();
  send(bus.get(), call);
  say(before);
}

}  // namespace
}  // namespace vm

int main(int argc, char** argv) {
  return vm::run(vm::serve, argc, argv, vm::kUsage);
}
