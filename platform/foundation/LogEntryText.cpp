// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/LogEntryText.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "platform/foundation/PrintableText.h"

namespace platform {

std::string logEntry(const std::tm& time, std::string_view host, std::string_view name,
                     long process, std::string_view text) {
  static constexpr std::array<const char*, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::array<char, 64> stamp{};
  std::snprintf(stamp.data(), stamp.size(), "%s %2d %02d:%02d:%02d ",
                months.at(static_cast<std::size_t>(time.tm_mon) % 12), time.tm_mday, time.tm_hour,
                time.tm_min, time.tm_sec);
  return stamp.data() + std::string(host) + " " + std::string(name) + "[" +
         std::to_string(process) + "]: " + printableLine(text, kMaximumLogEntryCharacters) + "\n";
}

std::string logHostName() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return "localhost";
  std::string host = printableLine(name.data());
  for (char& c : host) {
    if (c == ' ') c = '_';  // the host is one word of an entry
  }
  return host;
}

}  // namespace platform
