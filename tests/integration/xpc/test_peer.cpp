// SPDX-License-Identifier: Apache-2.0

// Serves the test protocol on the listening socket with the given number, until it is killed.
#include <csignal>

#include "tests/support/XPCPeers.h"

int main(int argc, char** argv) {
  using namespace testsupport;
  if (argc != 2) return 2;
  class Delegate final : public platform::NSXPCListenerDelegate {
   public:
    bool listener_shouldAcceptNewConnection(
        const std::shared_ptr<platform::NSXPCListener>&,
        const std::shared_ptr<platform::NSXPCConnection>& connection) override {
      const auto end = std::make_shared<End>();
      end->configure(connection);
      connection->resume();
      ends_.push_back(end);
      return true;
    }

   private:
    std::vector<std::shared_ptr<End>> ends_;  // used only by the listener's thread
  };
  const auto listener = platform::NSXPCListener::initWithListeningDescriptor(std::stoi(argv[1]));
  if (!listener) return 1;
  const auto delegate = std::make_shared<Delegate>();
  listener->setDelegate(delegate);
  listener->resume();
  for (;;) ::pause();
}
