#include "tests/integration/router-client/RouterHarness.h"

#include <sys/socket.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace test {

using platform::ServiceConnectResult;

ServiceConnectResult TestEndpoints::connectToService(std::string_view service) {
  using Outcome = ServiceConnectResult::Outcome;
  if (service != WLHIDEventRouterLabel) return {Outcome::UnknownName, -1, "no such service"};
  const int descriptor =
      platform::connectUnixSocket(socketPath_, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (descriptor < 0) return {Outcome::UnknownName, -1, "the endpoint is gone"};
  return {Outcome::Connected, descriptor, ""};
}

ScratchDirectory::ScratchDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "wlhid-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no scratch directory");
  path_ = pattern;
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

RouterHarness::RouterHarness() {
  const std::string path = (directory_.path() / "router.sock").string();
  const int descriptor = platform::listenUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC, 64, 0600);
  if (descriptor < 0) throw std::runtime_error("no endpoint at " + path);
  listener_ = platform::NSXPCListener::initWithListeningDescriptor(descriptor);
  listener_->setDelegate(router_);
  listener_->resume();
  previousEndpoints_ = platform::serviceEndpoints().exchange(std::make_shared<TestEndpoints>(path));
}

RouterHarness::~RouterHarness() {
  listener_->invalidate();
  router_->takeHeldReplies();
  router_->releaseSessions();
  platform::serviceEndpoints().exchange(previousEndpoints_);
}

bool waitUntilNoConnectionIsLeft() {
  // The count has no event to wait for; the limit is only for the case that it never gets there.
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (platform::liveConnectionCount() != 0) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace test
