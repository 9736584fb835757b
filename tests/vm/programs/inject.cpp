// SPDX-License-Identifier: Apache-2.0

// Lets the guest use its own keyboard and pointers, and plug and unplug devices: the port is wired
// to the machine's own control connection.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tests/vm/programs/Program.h"

namespace vm {
namespace {

using Json = nlohmann::json;

constexpr std::string_view kUsage =
    "usage: inject ACTION…\n"
    "  \"key CODE\"          presses and releases a key (a, ret, shift, f1 …)\n"
    "  \"down CODE\", \"up CODE\"\n"
    "  \"click BUTTON\"      left, middle, right\n"
    "  \"pointer NAME\"      sends what follows to the pointer whose name contains NAME\n"
    "  \"move DX DY\"        relative; \"point X Y\" absolute, 0 to 32767\n"
    "  \"plug DRIVER ID\"    adds a USB device (usb-mouse …); \"unplug ID\" removes it\n"
    "  \"pause MS\"\n";

constexpr int kMostMilliseconds = 20'000;

class Machine {
 public:
  Machine() : port_(openPort()) { request("qmp_capabilities", Json::object()); }

  /// Throws if the machine refuses; it may refuse a second greeting.
  Json execute(const std::string& command, const Json& arguments) {
    const Json answer = request(command, arguments);
    if (answer.contains("error"))
      throw std::runtime_error(command + ": " + answer["error"].value("desc", "refused"));
    return answer["return"];
  }

 private:
  /// The port takes one program at a time.
  static platform::FileDescriptor openPort() {
    constexpr const char* kPort = "/dev/virtio-ports/qmp";
    constexpr int kStep = 20;
    for (int waited = 0; waited < kMostMilliseconds; waited += kStep) {
      platform::FileDescriptor port(::open(kPort, O_RDWR | O_CLOEXEC));
      if (port || errno != EBUSY) {
        if (!port) throwErrno(kPort);
        return port;
      }
      ::poll(nullptr, 0, kStep);
    }
    throw std::runtime_error(std::string(kPort) + " is used by another program");
  }

  /// Answers to others, events and greetings are skipped: they do not carry the identifier.
  Json request(const std::string& command, const Json& arguments) {
    const std::string identifier = std::to_string(::getpid()) + "-" + std::to_string(++requests_);
    const Json message{{"execute", command}, {"arguments", arguments}, {"id", identifier}};
    const std::string text = message.dump() + "\n";
    if (::write(port_.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
      throwErrno("write to the machine");
    while (true) {
      const Json answer = Json::parse(line(), nullptr, false);
      if (answer.is_object() && answer.value("id", "") == identifier) return answer;
    }
  }

  std::string line() {
    auto end = received_.find('\n');
    for (; end == std::string::npos; end = received_.find('\n')) {
      pollfd source{port_.get(), POLLIN, 0};
      if (::poll(&source, 1, kMostMilliseconds) == 0)
        throw std::runtime_error("the machine does not answer");
      std::array<char, 4096> part{};
      const ssize_t length = ::read(port_.get(), part.data(), part.size());
      if (length <= 0) throwErrno("read from the machine");
      received_.append(part.data(), static_cast<std::size_t>(length));
    }
    std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return line;
  }

  platform::FileDescriptor port_;
  std::string received_;
  int requests_ = 0;
};

void send(Machine& machine, const Json& events) {
  machine.execute("input-send-event", {{"events", events}});
}

void key(Machine& machine, const std::string& code, bool down) {
  const Json value{{"type", "qcode"}, {"data", code}};
  send(machine, {{{"type", "key"}, {"data", {{"key", value}, {"down", down}}}}});
}

void click(Machine& machine, const std::string& button) {
  for (const bool down : {true, false})
    send(machine, {{{"type", "btn"}, {"data", {{"button", button}, {"down", down}}}}});
}

void axes(Machine& machine, const std::string& type, std::int64_t x, std::int64_t y) {
  send(machine, {{{"type", type}, {"data", {{"axis", "x"}, {"value", x}}}},
                 {{"type", type}, {"data", {{"axis", "y"}, {"value", y}}}}});
}

void selectPointer(Machine& machine, const std::string& name) {
  for (const Json& pointer : machine.execute("query-mice", Json::object())) {
    if (pointer.value("name", "").find(name) == std::string::npos) continue;
    const std::string line = "mouse_set " + std::to_string(pointer.value("index", 0));
    machine.execute("human-monitor-command", {{"command-line", line}});
    return;
  }
  throw std::runtime_error("there is no pointer " + name);
}

bool obeyOne(Machine& machine, const std::string& verb, const std::string& what) {
  if (verb == "key" || verb == "down") key(machine, what, true);
  if (verb == "key" || verb == "up") key(machine, what, false);
  if (verb == "click") click(machine, what);
  if (verb == "pointer") selectPointer(machine, what);
  if (verb == "unplug") machine.execute("device_del", {{"id", what}});
  if (verb == "pause") ::poll(nullptr, 0, static_cast<int>(number(what)));
  constexpr std::array kVerbs{"key", "down", "up", "click", "pointer", "unplug", "pause"};
  return std::ranges::find(kVerbs, verb) != kVerbs.end();
}

bool obeyTwo(Machine& machine, const std::string& verb, const std::string& first,
             const std::string& second) {
  if (verb == "move") axes(machine, "rel", number(first), number(second));
  if (verb == "point") axes(machine, "abs", number(first), number(second));
  if (verb == "plug")
    machine.execute("device_add", {{"driver", first}, {"id", second}, {"bus", "xhci.0"}});
  return verb == "move" || verb == "point" || verb == "plug";
}

void serve(const std::vector<std::string>& arguments) {
  if (arguments.empty()) throw UsageError();
  Machine machine;
  for (const std::string& argument : arguments) {
    const auto action = words(argument);
    const bool known = (action.size() == 2 && obeyOne(machine, action[0], action[1])) ||
                       (action.size() == 3 && obeyTwo(machine, action[0], action[1], action[2]));
    if (!known) throw UsageError();
  }
}

}  // namespace
}  // namespace vm

int main(int argc, char** argv) {
  return vm::run(vm::serve, argc, argv, vm::kUsage);
}
