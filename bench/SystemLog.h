// SPDX-License-Identifier: Apache-2.0

// A system log of any size for measurements: the same one in every run.
//
// Threading: one thread.
// Ownership: the file is removed with the object.
// Errors: std::runtime_error if there is no room for it or it cannot be written.
#pragma once

#include <cstddef>
#include <filesystem>

namespace bench {

class SystemLog {
 public:
  /// Below `root`, where the platform looks for it. Of a thousand entries `keptPerMille` are the
  /// router's, in no regular order. An entry has 150 bytes on average, and one in ten has
  /// continuation lines.
  SystemLog(const std::filesystem::path& root, std::size_t bytes, unsigned keptPerMille);
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;
  ~SystemLog();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace bench
