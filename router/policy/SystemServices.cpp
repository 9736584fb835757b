// SPDX-License-Identifier: Apache-2.0

#include "router/policy/SystemServices.h"

#include <utility>

namespace router {
namespace {

using platform::system::LoginSessions;
using platform::system::PeerProcess;
using platform::system::PolkitClient;
using platform::system::PolkitQuestion;

class OpenQuestion final : public Pending {
 public:
  OpenQuestion(PolkitClient& polkit, PolkitClient::QuestionID question)
      : polkit_(polkit), question_(question) {}
  OpenQuestion(const OpenQuestion&) = delete;
  OpenQuestion& operator=(const OpenQuestion&) = delete;
  ~OpenQuestion() override { polkit_.withdraw(question_); }

 private:
  PolkitClient& polkit_;
  const PolkitClient::QuestionID question_;
};

class SessionWatch final : public Pending {
 public:
  SessionWatch(LoginSessions& sessions, LoginSessions::WatchID watch)
      : sessions_(sessions), watch_(watch) {}
  SessionWatch(const SessionWatch&) = delete;
  SessionWatch& operator=(const SessionWatch&) = delete;
  ~SessionWatch() override { sessions_.unwatch(watch_); }

 private:
  LoginSessions& sessions_;
  const LoginSessions::WatchID watch_;
};

/// Null if it does not parse, which makes the device sensitive as a whole.
std::shared_ptr<const ReportDescriptor> parsed(const std::vector<std::uint8_t>& descriptor) try {
  return std::make_shared<const ReportDescriptor>(ReportDescriptor::parse(descriptor));
} catch (const ReportDescriptorError&) {
  return nullptr;
}

}  // namespace

void SystemServices::addTo(AuthoritySources* sources) {
  sources->askPolkit = [this](PolkitQuestion question, PolkitClient::Answered answered) {
    return std::make_unique<OpenQuestion>(polkit_,
                                          polkit_.ask(std::move(question), std::move(answered)));
  };
  sources->sessionOf = [this](const PeerProcess& process) { return sessions_.sessionOf(process); };
  sources->watchSession = [this](const std::string& session, LoginSessions::Changed changed) {
    return std::make_unique<SessionWatch>(sessions_, sessions_.watch(session, std::move(changed)));
  };
}

std::optional<RoutableDevice> routableDevice(
    const std::vector<std::unique_ptr<DeviceSource>>& sources, const DeviceDescription& device) {
  for (const auto& source : sources) {
    const auto facts = source->factsOf(device.registryEntryID);
    if (!facts) continue;
    return RoutableDevice{{device.bus, device.vendor, device.product, device.unique},
                          classify(*facts),
                          parsed(facts->reportDescriptor)};
  }
  return std::nullopt;
}

}  // namespace router
