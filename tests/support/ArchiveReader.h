// SPDX-License-Identifier: Apache-2.0

// Reads an archive, for tests.
#pragma once

#include <archive.h>
#include <archive_entry.h>

#include <array>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

namespace testsupport {

/// Name and content of each file. Throws std::runtime_error for an archive that is incomplete, has
/// a duplicate name, or has a file that others than its owner may read.
inline std::map<std::string, std::string> readArchive(const std::filesystem::path& path) {
  struct archive* const reader = archive_read_new();
  archive_read_support_format_zip(reader);
  std::map<std::string, std::string> files;
  std::string problem;
  if (archive_read_open_filename(reader, path.c_str(), 65536) != ARCHIVE_OK)
    problem = archive_error_string(reader);
  archive_entry* entry = nullptr;
  int result = ARCHIVE_OK;
  while (problem.empty() && (result = archive_read_next_header(reader, &entry)) == ARCHIVE_OK) {
    const auto [at, isNew] = files.try_emplace(archive_entry_pathname(entry));
    if (!isNew) problem = "twice: " + at->first;
    if (archive_entry_perm(entry) != 0600) problem = "for others too: " + at->first;
    std::array<char, 65536> buffer;
    la_ssize_t count = 0;
    while ((count = archive_read_data(reader, buffer.data(), buffer.size())) > 0)
      at->second.append(buffer.data(), static_cast<std::size_t>(count));
    if (count < 0) problem = archive_error_string(reader);
  }
  if (problem.empty() && result != ARCHIVE_EOF) problem = archive_error_string(reader);
  archive_read_free(reader);
  if (!problem.empty()) throw std::runtime_error(path.string() + ": " + problem);
  return files;
}

}  // namespace testsupport
