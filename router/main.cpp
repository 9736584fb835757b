// SPDX-License-Identifier: Apache-2.0

// The router's program: serves the endpoint that the job daemon (or systemd) passes to it, until it
// is told to end or has had no connection for a while. Exit status 0 in both cases, 1 if it was
// passed no endpoint or no root. The endpoints of its other services may be missing.
//
//   com.quillmar.hideventrouter [--root DIR | --system]
//
// The root is the directory that is passed along with the endpoint, under the name ".root"; --root
// is for starting the router by hand, or by a service manager that passes sockets only. --system
// serves the system's own root, with its devices and authorities. Apart from those variables
// (LISTEN_PID, LISTEN_FDS, LISTEN_FDNAMES) it takes nothing from the environment.
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/foundation/NSString.h"
#include "platform/services/RootFiles.h"
#include "platform/xpc/PassedDescriptors.h"
#include "router-client/WLHIDDeviceDirectoryProtocols.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/Router.h"
#include "router/SystemRouter.h"
#include "router/control/ControlProtocol.h"

namespace {

/// SIGTERM and SIGINT can be read from the descriptor. To be called before the first thread starts.
int terminationDescriptor() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  if (const int error = pthread_sigmask(SIG_BLOCK, &signals, nullptr); error != 0) {
    throw std::system_error(error, std::generic_category(), "pthread_sigmask");
  }
  const int descriptor = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  return descriptor;
}

void waitForEither(int first, int second) {
  std::array<pollfd, 2> polls{pollfd{first, POLLIN, 0}, pollfd{second, POLLIN, 0}};
  while (::poll(polls.data(), polls.size(), -1) < 0 && errno == EINTR) {
  }
}

/// The process's threads end with it, so everything must have been sent before.
void waitUntilConnectionsAreClosed() {
  constexpr int kTries = 300;
  for (int i = 0; i < kTries && platform::liveConnectionCount() > 0; ++i) ::poll(nullptr, 0, 10);
}

/// The kernel's name for it, for messages.
std::filesystem::path pathOf(int directory) {
  std::error_code unknown;
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(directory), unknown);
}

platform::SystemRoot passedRoot(platform::FileDescriptor directory) {
  const std::filesystem::path path = pathOf(directory.get());
  platform::checkIsOwn(directory.get(), "the system root " + path.string());
  return {std::move(directory), path};
}

/// It belongs to the superuser, whoever runs the router.
platform::SystemRoot systemsOwnRoot() {
  const platform::SystemRoot root("/");
  return {platform::openRoot(root), root.path()};
}

platform::SystemRoot systemRoot(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--system") return systemsOwnRoot();
  const bool isNamed = argc == 3 && std::string_view(argv[1]) == "--root" && *argv[2] == '/';
  if (argc > 1 && !isNamed)
    throw std::runtime_error("its only options are --root, with an absolute path, and --system");
  platform::FileDescriptor directory(
      platform::xpc::takePassedDirectory(platform::kRootDescriptorName));
  if (directory) return passedRoot(std::move(directory));
  if (!isNamed) throw std::runtime_error("no system root was passed, and there is no --root");
  const platform::SystemRoot named(argv[2]);
  return {platform::openOwnRoot(named), named.path()};
}

/// The system's own root, however it was named, is never served without its authority.
router::RouterOptions optionsFor(const platform::SystemRoot& root) {
  if (root.isSystem()) return router::systemRouterOptions(root);
  return {};
}

/// Only those are offered whose endpoints were passed too.
void addServices(router::RouterOptions* options) {
  using platform::NSXPCListener;
  options->control = NSXPCListener::initWithMachServiceName(platform::str(router::kControlService));
  options->directory =
      NSXPCListener::initWithMachServiceName(platform::str(WLHIDDeviceDirectoryLabel));
}

int serve(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);  // a log that is no longer read must not end the router
  const int terminated = terminationDescriptor();
  const platform::SystemRoot root = systemRoot(argc, argv);
  router::RouterOptions options = optionsFor(root);
  addServices(&options);
  const auto listener =
      platform::NSXPCListener::initWithMachServiceName(platform::str(WLHIDEventRouterLabel));
  if (listener == nullptr) {
    router::logToStandardError(platform::LogLine::of<router::row::noEndpoint>(
        WLHIDEventRouterLabel, std::generic_category().message(errno)));
    return 1;
  }
  router::Router router(root, listener, options);
  router.resume();
  waitForEither(terminated, router.idleDescriptor());
  router.stop();
  waitUntilConnectionsAreClosed();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return serve(argc, argv);
  } catch (const std::exception& error) {
    router::logToStandardError(platform::LogLine::of<router::row::cannotRun>(error.what()));
    return 1;
  }
}
