// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/Authorities.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <memory>
#include <utility>

#include "platform/system/PeerProcess.h"
#include "platform/system/PolkitClient.h"
#include "platform/system/SystemBus.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

using namespace platform::system;

constexpr std::chrono::seconds kConnectionLimit{5};
/// A little more than each question's own.
constexpr std::chrono::seconds kAnswerLimit{8};

/// A value from the bus's thread, the first one.
template <class T>
class FirstValue {
 public:
  void set(const T& value) {
    if (!isSet_) promise_.set_value(value);
    isSet_ = true;
  }
  std::optional<T> waitFor(std::chrono::seconds limit) {
    auto value = promise_.get_future();
    if (value.wait_for(limit) != std::future_status::ready) return std::nullopt;
    return value.get();
  }

 private:
  std::promise<T> promise_;
  bool isSet_ = false;
};

bool isConnectedInTime(SystemBus& bus) {
  const auto connected = std::make_shared<FirstValue<bool>>();
  SystemBus::ListenerID listener{};
  bus.run([&] {
    listener = bus.listen([connected](bool isConnected) {
      if (isConnected) connected->set(true);
    });
  });
  const bool isInTime = connected->waitFor(kConnectionLimit).has_value();
  bus.run([&] { bus.unlisten(listener); });
  return isInTime;
}

/// The question whether an ordinary device may be routed. The answer depends on the device, so only
/// whether there is one counts.
std::string polkitProblem(SystemBus& bus, const PeerProcess& self) {
  const auto answer = std::make_shared<FirstValue<PolkitAnswer>>();
  PolkitClient polkit(bus);
  PolkitQuestion question{self, "com.quillmar.hideventrouter.route"};
  polkit.ask(std::move(question), [answer](const PolkitAnswer& given) { answer->set(given); });
  const auto given = answer->waitFor(kAnswerLimit);
  if (!given) return "polkit has not answered in time";
  return given->kind == PolkitAnswer::Kind::Failed ? given->reason : std::string();
}

void askLogind(AuthorityFindings& findings, SystemBus& bus, const PeerProcess& self,
               const SessionLookup& lookup) {
  LoginSessions::Options options;
  options.lookup = lookup;
  LoginSessions sessions(bus, options);
  const auto session = sessions.sessionOf(self);
  if (!session) return;
  const auto state = std::make_shared<FirstValue<SessionState>>();
  sessions.watch(*session, [state](const SessionState& now) { state->set(now); });
  findings.session = state->waitFor(kAnswerLimit);
  if (!findings.session) findings.sessionProblem = "logind has not answered in time";
}

AuthorityFindings notAskable(std::string why) {
  AuthorityFindings findings;
  findings.busProblem = std::move(why);
  return findings;
}

}  // namespace

AuthorityFindings askAuthorities(const platform::SystemRoot& root, const SessionLookup& lookup) {
  const std::string socket = root.path() / "run/dbus/system_bus_socket";
  struct stat status {};
  if (::stat(socket.c_str(), &status) != 0) return notAskable(socket + ": " + describeErrno(errno));
  std::string whyNot;
  const auto self = PeerProcess::ofProcess(::getpid(), ::geteuid(), {}, whyNot);
  if (!self) return notAskable("this process cannot be identified: " + whyNot);
  SystemBus::Options options;
  options.address = "unix:path=" + socket;
  SystemBus bus(options);
  if (!isConnectedInTime(bus)) return notAskable(socket + ": no connection in time");
  AuthorityFindings findings;
  findings.polkitProblem = polkitProblem(bus, *self);
  askLogind(findings, bus, *self, lookup);
  return findings;
}

}  // namespace tool
