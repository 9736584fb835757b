// SPDX-License-Identifier: Apache-2.0

#include "platform/services/UserNamespace.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace platform {

namespace {

std::string contentOf(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

std::optional<uid_t> userOutside(uid_t overflow, std::string_view map) {
  std::istringstream lines{std::string(map)};
  unsigned long long inside = 0;
  unsigned long long outside = 0;
  unsigned long long count = 0;
  bool isRead = false;
  while (lines >> inside >> outside >> count) {
    if (overflow >= inside && overflow - inside < count) return std::nullopt;
    isRead = true;
  }
  return isRead && lines.eof() ? std::optional(overflow) : std::nullopt;
}

std::optional<uid_t> userOutside() {
  std::istringstream number(contentOf("/proc/sys/kernel/overflowuid"));
  uid_t overflow = 0;
  if (!(number >> overflow)) return std::nullopt;
  return userOutside(overflow, contentOf("/proc/self/uid_map"));
}

}  // namespace platform
