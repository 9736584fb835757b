// SPDX-License-Identifier: Apache-2.0

// The names of a module's files, in the archive and in its manifest.
//
// Threading: any thread.
#pragma once

#include <cstddef>
#include <string>

#include "platform/kit/KQLogModule.h"
#include "tool/report/LogModules.h"

namespace tool {

struct PartName {
  std::string module;
  std::string file;
  std::string description;
  std::string category;
};

/// Whether a report recognises the file's lines.
[[nodiscard]] bool isRouterLog(const std::string& module, const std::string& file);
[[nodiscard]] bool isRecentLines(const std::string& module, const std::string& file);

/// Without input: a module may give itself and its files any name, so only known names are kept and
/// the others are numbered.
[[nodiscard]] PartName shownPartName(const std::string& module, std::size_t moduleNumber,
                                     const std::string& file, std::size_t fileNumber);
[[nodiscard]] PartName wholePartName(const ModuleFiles& module, const platform::KQLogFile& file);

/// A file's name that is harmless wherever the archive is unpacked.
[[nodiscard]] std::string safeComponent(const std::string& name);

}  // namespace tool
