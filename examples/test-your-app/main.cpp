// SPDX-License-Identifier: Apache-2.0

// An application's own test: no device, no router and no privileges are needed. The scripted
// platform stands in for the system, and the test plays the router. Any test framework will do;
// this one does without.
#include <cstdlib>
#include <iostream>

#include "examples/test-your-app/FootSwitch.h"
#include "testkit/RouterSide.h"

namespace {

void expect(bool condition, const char* what) {
  if (condition) return;
  std::cerr << "FAILED: " << what << '\n';
  std::exit(1);  // NOLINT: there is one thread
}

std::shared_ptr<WLHIDEventRouterClient> clientFor(const std::shared_ptr<FootSwitch>& application) {
  auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          7, 0, nullptr, nullptr);
  client->setDelegate(application);
  client->setStarted(true);
  return client;
}

/// One report for each state of the switch.
void move(platform::ScriptedConnection& router, std::initializer_list<std::uint8_t> states) {
  for (const std::uint8_t state : states) testkit::sendReport(router, {state}, /*reportID=*/0);
}

void pressingTogglesTheRecorder() {
  platform::ScriptedPlatform platform;  // in place from here to the end of the scope
  testkit::installRouter(platform);
  const auto application = std::make_shared<FootSwitch>();
  const auto client = clientFor(application);
  auto& router = *platform.connection(1);
  router.deliverReply(nullptr);  // the router answers the start request: routing
  move(router, {1, 1, 0});
  expect(application->isRecording(), "that the first press starts");
  move(router, {1, 0});
  expect(!application->isRecording(), "that the second press stops");
}

void aMissingRouterIsSaid() {
  platform::ScriptedPlatform platform;
  const auto application = std::make_shared<FootSwitch>();
  const auto client = clientFor(application);
  expect(!application->trouble().empty(), "that a missing router is said");
}

}  // namespace

int main() {
  pressingTogglesTheRecorder();
  aMissingRouterIsSaid();
  std::cout << "passed\n";
}
