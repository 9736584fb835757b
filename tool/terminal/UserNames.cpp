// SPDX-License-Identifier: Apache-2.0

#include "tool/terminal/UserNames.h"

#include <pwd.h>

#include <limits>
#include <vector>

#include "platform/foundation/PrintableText.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"

namespace tool {

namespace {

constexpr std::size_t kEntryBytes = 65536;

}  // namespace

std::string nameOfUser(uid_t user) {
  std::vector<char> buffer(kEntryBytes);
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
  return found == nullptr ? std::to_string(user) : platform::printableLine(found->pw_name);
}

uid_t userNamed(const std::string& name) {
  std::vector<char> buffer(kEntryBytes);
  passwd entry{};
  passwd* found = nullptr;
  ::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
  if (found != nullptr) return found->pw_uid;
  const auto number = parseNumber(name);
  // The largest number means "no user".
  if (number && *number < std::numeric_limits<uid_t>::max()) return static_cast<uid_t>(*number);
  throw Failure("there is no user \"" + name + "\"");
}

}  // namespace tool
