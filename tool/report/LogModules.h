// SPDX-License-Identifier: Apache-2.0

// Asks the logger's modules for their files.
//
// A module is somebody else's code: it may fail, throw, answer twice, late or never. Each is asked
// separately, and a problem of one does not affect the others.
//
// Threading: the main thread, which asks the modules; they may answer on any thread. Blocks for at
//   most `timeout` per answer.
// Ownership: files and contents are shared with their modules.
// Errors: in the results.
// Order: that of the logger's modules and of a module's files.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSString.h"
#include "platform/kit/KQLogModule.h"

namespace tool {

inline constexpr std::chrono::seconds kModuleTimeout{30};

struct ModuleFiles {
  std::string identifier;
  std::string name;
  std::vector<std::shared_ptr<platform::KQLogFile>> files;
  std::string problem;                 ///< why files are missing, or empty
  std::optional<std::int64_t> code{};  ///< of the module's error, if it gave one
};

/// A file's content: data, or the path of an existing file.
struct ModuleContent {
  std::shared_ptr<platform::NSData> data{};  ///< may be null
  std::string path{};                        ///< may be empty
  bool removePath = false;                   ///< the file at the path may be removed after reading
  std::string problem{};                     ///< why it is missing or incomplete, or empty
  std::optional<std::int64_t> code{};        ///< of the module's error, if it gave one
};

/// The files of every module of the shared logger that provides any.
[[nodiscard]] std::vector<ModuleFiles> askLogModules(
    std::chrono::milliseconds timeout = kModuleTimeout);
[[nodiscard]] ModuleContent readModuleFile(const std::shared_ptr<platform::KQLogFile>& file,
                                           std::chrono::milliseconds timeout = kModuleTimeout);
/// A string's text, empty for null.
[[nodiscard]] std::string textOf(const std::shared_ptr<platform::NSString>& string);

}  // namespace tool
