// SPDX-License-Identifier: Apache-2.0

// What a process holds: a count before and one after show whether anything leaked.
//
// Threading: any thread.
// Errors: a process that does not exist holds nothing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace stress {

struct Census {
  std::uint64_t descriptors = 0;
  std::uint64_t threads = 0;
  std::uint64_t residentKiB = 0;

  static Census of(pid_t process);
  /// "12 descriptors, 3 threads, 4096 KiB"
  [[nodiscard]] std::string text() const;
  /// Takes over each count of `other` that is smaller.
  void lower(const Census& other);
};

/// Processes with an argument that names `root` or something below it, except zombies. Sorted.
[[nodiscard]] std::vector<pid_t> processesOfRoot(const std::filesystem::path& root);
/// Everything below `directory`, relative to it and sorted.
[[nodiscard]] std::vector<std::string> filesBelow(const std::filesystem::path& directory);

/// Whether the program is built with a sanitizer, whose own memory makes resident sizes
/// meaningless.
[[nodiscard]] bool isSanitized();

}  // namespace stress
