// SPDX-License-Identifier: Apache-2.0

#include "tool/report/PartNames.h"

#include <cctype>
#include <string_view>

#include "platform/kit/RecentLogLines.h"

namespace tool {

namespace {

constexpr std::size_t kMaximumComponentBytes = 100;
constexpr std::string_view kRouterModule = "WLHIDEventRouter";
constexpr std::string_view kRouterFile = "syslog-com.quillmar.hideventrouter.log";

}  // namespace

bool isRouterLog(const std::string& module, const std::string& file) {
  return module == kRouterModule && file == kRouterFile;
}

bool isRecentLines(const std::string& module, const std::string& file) {
  return module == platform::kRecentLogLinesIdentifier && file == platform::kRecentLogLinesFile;
}

PartName shownPartName(const std::string& module, std::size_t moduleNumber, const std::string& file,
                       std::size_t fileNumber) {
  if (isRouterLog(module, file))
    return {module, file, "What the router and the job daemon logged", "Log"};
  if (isRecentLines(module, file))
    return {module, file, "The last lines that the framework logged in this process", "Log"};
  return {"module-" + std::to_string(moduleNumber), "file-" + std::to_string(fileNumber),
          "The lengths of a file's lines", "Log"};
}

PartName wholePartName(const ModuleFiles& module, const platform::KQLogFile& file) {
  return {module.identifier, textOf(file.name()), textOf(file.localizedDescription()),
          textOf(file.categoryName())};
}

std::string safeComponent(const std::string& name) {
  std::string safe = name.substr(0, kMaximumComponentBytes);
  for (char& c : safe) {
    const auto byte = static_cast<unsigned char>(c);
    const bool allowed =
        byte < 0x80 && (std::isalnum(byte) != 0 || c == '.' || c == '-' || c == '_');
    if (!allowed) c = '_';
  }
  if (safe.empty() || safe.front() == '.') safe.insert(0, "_");
  return safe;
}

}  // namespace tool
