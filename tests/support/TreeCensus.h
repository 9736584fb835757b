// SPDX-License-Identifier: Apache-2.0

// What is below a directory: every file with its kind, mode, owner, group, number of links, content
// and extended attributes, of which access control lists are some. Only times are left out.
#pragma once

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory.h"

namespace testsupport {

/// By path, relative to the directory, which is "." itself.
using TreeCensus = std::map<std::string, std::string>;

inline std::string attributesOf(const std::filesystem::path& path) {
  std::vector<char> names(65536);
  const ssize_t length = ::llistxattr(path.c_str(), names.data(), names.size());
  std::map<std::string, std::string> values;
  for (ssize_t at = 0; at < length;) {
    const std::string name = names.data() + at;
    std::vector<char> value(65536);
    const ssize_t size = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    values[name].assign(value.data(), static_cast<std::size_t>(size > 0 ? size : 0));
    at += static_cast<ssize_t>(name.size()) + 1;
  }
  std::string text;
  for (const auto& [name, value] : values) text += " " + name + "=" + value;
  return text;
}

inline std::string descriptionOf(const std::filesystem::path& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return "gone";
  std::string text(64, '\0');
  text.resize(static_cast<std::size_t>(std::snprintf(
      text.data(), text.size(), "%o %u:%u", status.st_mode, status.st_uid, status.st_gid)));
  text += attributesOf(path);
  if (S_ISREG(status.st_mode))
    text += " links " + std::to_string(status.st_nlink) + ": " + readFile(path);
  if (S_ISLNK(status.st_mode)) text += " to " + std::filesystem::read_symlink(path).string();
  return text;
}

inline TreeCensus censusOf(const std::filesystem::path& directory) {
  TreeCensus census{{".", descriptionOf(directory)}};
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory))
    census[entry.path().lexically_relative(directory).string()] = descriptionOf(entry.path());
  return census;
}

/// The paths whose descriptions differ, for messages: contents may be large.
inline std::vector<std::string> differences(const TreeCensus& one, const TreeCensus& other) {
  std::vector<std::string> paths;
  TreeCensus all = one;
  all.insert(other.begin(), other.end());
  for (const auto& [path, description] : all) {
    const auto in = [&path = path](const TreeCensus& census) {
      const auto found = census.find(path);
      return found == census.end() ? std::string() : found->second;
    };
    if (in(one) != in(other)) paths.push_back(path);
  }
  return paths;
}

}  // namespace testsupport
