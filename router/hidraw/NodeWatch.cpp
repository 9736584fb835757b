// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/NodeWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace router {

namespace {

/// Not IN_CLOSE_WRITE: every program on the computer writes to something in /dev.
constexpr std::uint32_t kChanges =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_ONLYDIR | IN_DONT_FOLLOW;

/// A node, or the record of a character device or of a HID or input device without a node.
constexpr std::array<std::string_view, 4> kMatter{"hidraw", "c", "+hid:", "+input:"};

bool matters(const inotify_event& event, std::string_view name) {
  // Of what was lost, because there was too much of it, nothing is known.
  if ((event.mask & IN_Q_OVERFLOW) != 0) return true;
  return std::ranges::any_of(kMatter,
                             [&](std::string_view each) { return name.starts_with(each); });
}

/// Whether one of the kernel's events matters. They follow each other, each with its name.
bool anyMatters(const char* bytes, std::size_t length) {
  bool any = false;
  for (std::size_t at = 0; at + sizeof(inotify_event) <= length;) {
    inotify_event event{};
    std::memcpy(&event, bytes + at, sizeof event);
    const char* const name = bytes + at + sizeof event;
    any = any || matters(event, {name, ::strnlen(name, event.len)});
    at += sizeof event + event.len;
  }
  return any;
}

}  // namespace

std::unique_ptr<NodeWatch> NodeWatch::begin(const std::string& nodes, const std::string& records) {
  platform::FileDescriptor events(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!events) return nullptr;
  const bool hasNodes = ::inotify_add_watch(events.get(), nodes.c_str(), kChanges) >= 0;
  const bool hasRecords = ::inotify_add_watch(events.get(), records.c_str(), kChanges) >= 0;
  if (!hasNodes && !hasRecords) return nullptr;
  return std::unique_ptr<NodeWatch>(new NodeWatch(std::move(events)));
}

bool NodeWatch::take() {
  std::array<char, 4096> bytes{};
  bool any = false;
  for (ssize_t length = 0; (length = ::read(events_.get(), bytes.data(), bytes.size())) > 0;)
    any = anyMatters(bytes.data(), static_cast<std::size_t>(length)) || any;
  return any;
}

}  // namespace router
