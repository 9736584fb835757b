// SPDX-License-Identifier: Apache-2.0

// wlhid-jobd: the job daemon of one system root.
//
//   wlhid-jobd --root DIR [--foreground] [--idle-ms N] [--ready-fd N]
//   wlhid-jobd --system
//
// The second form is that of the system's own root, for systemd.
//
// Started on demand by applications. Goes to the background unless told not to. Writes an empty
// line to --ready-fd when all endpoints listen (its own or, if another daemon already serves the
// root, that one's), or the cause of its failure, and closes it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "jobd/Daemon.h"
#include "jobd/DaemonLock.h"
#include "jobd/SystemService.h"
#include "platform/foundation/StandardError.h"

namespace {

struct Options {
  std::string root;
  bool isSystem = false;
  bool isForeground = false;
  int readyDescriptor = -1;
  std::chrono::milliseconds idleTime = jobd::Daemon::kDefaultIdleTime;
};

int number(std::string_view name, std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 0) {
    throw std::runtime_error(std::string(name) + " needs a number");
  }
  return value;
}

Options parseOptions(int argc, char** argv) {
  Options options;
  options.isSystem = argc == 2 && std::string_view(argv[1]) == "--system";
  if (options.isSystem) return options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view name = argv[i];
    if (name == "--foreground") {
      options.isForeground = true;
      continue;
    }
    if (++i == argc) throw std::runtime_error(std::string(name) + " is unknown or needs a value");
    if (name == "--root")
      options.root = argv[i];
    else if (name == "--ready-fd")
      options.readyDescriptor = number(name, argv[i]);
    else if (name == "--idle-ms")
      options.idleTime = std::chrono::milliseconds(number(name, argv[i]));
    else
      throw std::runtime_error("unknown option " + std::string(name));
  }
  if (options.root.empty() || options.root.front() != '/')
    throw std::runtime_error("--root needs an absolute path");
  return options;
}

/// Keeps the streams and the readiness pipe, and closes everything else that was inherited.
void closeInherited(int readyDescriptor) {
  constexpr unsigned firstOther = 3;
  const auto ready = static_cast<unsigned>(readyDescriptor);
  if (readyDescriptor < static_cast<int>(firstOther)) {
    ::close_range(firstOther, ~0U, 0);
    return;
  }
  if (ready > firstOther) ::close_range(firstOther, ready - 1, 0);
  ::close_range(ready + 1, ~0U, 0);
  ::fcntl(readyDescriptor, F_SETFD, FD_CLOEXEC);
}

/// Lets the process that started this continue: it waits only for the first of the two processes.
void goToBackground() {
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot go to the background");
  if (child > 0) ::_exit(0);
  ::setsid();
}

/// Reports once how the start went. Afterwards the descriptor's number may be reused.
void report(int& readyDescriptor, const std::string& cause) {
  const int descriptor = std::exchange(readyDescriptor, -1);
  if (descriptor < 0) return;
  const std::string line = cause.substr(0, cause.find('\n')) + "\n";
  [[maybe_unused]] const ssize_t written = ::write(descriptor, line.data(), line.size());
  ::close(descriptor);
}

void serve(Options& options) {
  const platform::SystemRoot root(options.root);
  auto directories = jobd::RootDirectories::open(root);
  const auto lock = jobd::DaemonLock::acquire(directories.run.get());
  if (!lock) {
    report(options.readyDescriptor, {});
    return;
  }
  jobd::Daemon daemon(root, std::move(directories), options.idleTime);
  report(options.readyDescriptor, {});
  daemon.run();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    options = parseOptions(argc, argv);
    if (!options.isSystem) closeInherited(options.readyDescriptor);
    ::umask(022);
    if (::chdir("/") != 0) throw std::runtime_error("cannot leave the working directory");
    if (options.isSystem) {
      jobd::serveSystem();
      return 0;
    }
    if (!options.isForeground) goToBackground();
    serve(options);
    return 0;
  } catch (const std::exception& error) {
    platform::writeLineToStandardError(platform::LogLine::of<jobd::row::cannotRun>(error.what()));
    report(options.readyDescriptor, error.what());
    return 1;
  }
}
