// SPDX-License-Identifier: Apache-2.0

#include "tests/support/PrivateBus.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "tests/support/Inbox.h"

namespace testsupport {
namespace {

constexpr const char* kDaemon = "/usr/bin/dbus-daemon";
constexpr int kReadyDescriptor = 3;

std::string configuration(const std::string& address) {
  return R"(<busconfig>
  <type>system</type>
  <listen>)" +
         address + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
  </policy>
  <limit name="max_replies_per_connection">128</limit>
  <limit name="max_match_rules_per_connection">512</limit>
</busconfig>
)";
}

[[noreturn]] void becomeDaemon(const char* configurationOption, int ready, int log) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(log, STDERR_FILENO);
  ::dup2(ready, kReadyDescriptor);
  ::execl(kDaemon, kDaemon, configurationOption, "--nofork", "--nopidfile", "--nosyslog",
          "--print-address=3", nullptr);
  ::_exit(127);
}

}  // namespace

PrivateBus::PrivateBus() : address_("unix:path=" + (directory_.path() / "bus").string()) {
  writeFile(directory_.path() / "bus.conf", configuration(address_));
  // Daemons that give up their rights connect to it too.
  std::filesystem::permissions(directory_.path(), std::filesystem::perms(0711));
  start();
}

PrivateBus::~PrivateBus() {
  stop();
}

void PrivateBus::start() {
  std::array<int, 2> ready{};
  if (::pipe2(ready.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const std::string option = "--config-file=" + (directory_.path() / "bus.conf").string();
  const int log = ::open((directory_.path() / "log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  daemon_ = ::fork();
  if (daemon_ == 0) becomeDaemon(option.c_str(), ready[1], log);
  ::close(log);
  ::close(ready[1]);
  std::array<char, 512> address{};
  const ssize_t length = ::read(ready[0], address.data(), address.size());
  ::close(ready[0]);
  if (length <= 0)
    throw std::runtime_error(std::string(kDaemon) +
                             " cannot be started: " + readFile(directory_.path() / "log"));
}

void PrivateBus::stop() {
  if (daemon_ <= 0) return;
  ::kill(daemon_, SIGKILL);
  ::waitpid(daemon_, nullptr, 0);
  daemon_ = -1;
  std::error_code ignored;
  std::filesystem::remove(directory_.path() / "bus", ignored);
}

void waitForConnection(platform::system::SystemBus& bus) {
  Inbox<bool> changes;
  platform::system::SystemBus::ListenerID listener{};
  bus.run([&] { listener = bus.listen([&](bool isConnected) { changes.put(isConnected); }); });
  while (!changes.next()) {
  }
  bus.run([&] { bus.unlisten(listener); });
}

}  // namespace testsupport
