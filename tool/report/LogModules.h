// Asking the logger's modules for their files.
//
// A module is other people's code: it may fail, throw, answer twice, late or never. Each is asked
// on its own, and what is wrong with one is told of that one alone.
//
// Threading: the main thread, on which the modules are asked; they may answer on any. Waits at most
//   kPatience for an answer.
// Ownership: values; files and contents are shared with their modules.
// Errors: in the results. Order: as the logger has its modules, as a module has its files.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/kit/KQLogModule.h"

namespace tool {

inline constexpr std::chrono::seconds kModulePatience{30};

struct ModuleFiles {
  std::string identifier;
  std::string name;
  std::vector<std::shared_ptr<platform::KQLogFile>> files;
  std::string problem;                 ///< why there are none, or not all; empty when all is well
  std::optional<std::int64_t> code{};  ///< of the module's error, where it gave one
};

/// A file's content: data, or the path of a file that is there.
struct ModuleContent {
  std::shared_ptr<platform::NSData> data{};  ///< may be null
  std::string path{};                        ///< may be empty
  bool removePath = false;                   ///< the file at the path may go once it has been read
  std::string problem{};  ///< why it is not there, or not all of it; empty when all is well
  std::optional<std::int64_t> code{};  ///< of the module's error, where it gave one
};

/// Of every module of the shared logger that has files.
[[nodiscard]] std::vector<ModuleFiles> askLogModules(
    std::chrono::milliseconds patience = kModulePatience);
[[nodiscard]] ModuleContent readModuleFile(const std::shared_ptr<platform::KQLogFile>& file,
                                           std::chrono::milliseconds patience = kModulePatience);
/// A string's text, empty for null.
[[nodiscard]] std::string textOf(const std::shared_ptr<platform::NSString>& string);

}  // namespace tool
