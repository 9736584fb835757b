// SPDX-License-Identifier: Apache-2.0

#include "tool/report/ReportOrigin.h"

#include <sys/utsname.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <string_view>

#include "platform/foundation/Format.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

std::string utcTime() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  return platform::stringWithFormat("%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                                    parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                                    parts.tm_sec);
}

/// PRETTY_NAME="…" from the distribution's own description.
std::string distribution() {
  constexpr std::string_view kKey = "PRETTY_NAME=";
  std::ifstream in("/etc/os-release");
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with(kKey)) continue;
    std::erase(line, '"');
    return oneLine(line.substr(kKey.size()));
  }
  return {};
}

}  // namespace

ReportOrigin originOf(bool whole) {
  utsname name{};
  ::uname(&name);
  std::string release(name.release);
  if (!whole) release.resize(std::min(release.find_first_not_of("0123456789."), release.size()));
  return {utcTime(), "wlhid " WLHID_VERSION, std::string(name.sysname) + " " + release,
          name.machine, distribution()};
}

}  // namespace tool
