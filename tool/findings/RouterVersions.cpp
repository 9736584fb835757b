// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/RouterVersions.h"

#include "platform/services/VersionOrder.h"

namespace tool {

bool isDowngrade(const RouterVersions& versions) {
  return versions.installed &&
         platform::isNewer(versions.installed->version, versions.bundle.version);
}

std::vector<std::string> installArguments(const RouterVersions& versions) {
  std::vector<std::string> arguments{"install"};
  if (isDowngrade(versions)) arguments.emplace_back("--force");
  return arguments;
}

}  // namespace tool
