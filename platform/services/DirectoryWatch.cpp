// SPDX-License-Identifier: Apache-2.0

#include "platform/services/DirectoryWatch.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>

namespace platform {

namespace {

constexpr std::uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                   IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

/// By descriptor, so that nobody can put another directory in the way.
bool watchDirectory(int events, int directory) {
  const std::string path = "/proc/self/fd/" + std::to_string(directory);
  return ::inotify_add_watch(events, path.c_str(), kChanges | IN_ONLYDIR) >= 0;
}

}  // namespace

std::unique_ptr<DirectoryWatch> DirectoryWatch::begin(FileDescriptor root,
                                                      std::vector<std::string> places) {
  FileDescriptor events(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!root || !events) return nullptr;
  std::unique_ptr<DirectoryWatch> watch(
      new DirectoryWatch(std::move(root), std::move(events), std::move(places)));
  return watch->watchAll() ? std::move(watch) : nullptr;
}

/// Watching a directory again changes nothing, so this can be repeated whenever one may be new.
bool DirectoryWatch::watchAll() const {
  if (!watchDirectory(events_.get(), root_.get())) return false;
  for (const std::string& place : places_) watchOnTheWay(place);
  return true;
}

void DirectoryWatch::watchOnTheWay(const std::string& place) const {
  FileDescriptor directory;
  for (const auto& step : std::filesystem::path(place)) {
    const int parent = directory ? directory.get() : root_.get();
    FileDescriptor next(
        ::openat(parent, step.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!next || !watchDirectory(events_.get(), next.get())) return;
    directory = std::move(next);
  }
}

bool DirectoryWatch::take() {
  std::array<char, 4096> events{};
  bool any = false;
  while (::read(events_.get(), events.data(), events.size()) > 0) any = true;
  // Only then: what comes into a directory before it is watched is there when somebody looks.
  if (any) watchAll();
  return any;
}

}  // namespace platform
