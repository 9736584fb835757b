// SPDX-License-Identifier: Apache-2.0

// The files that devices are made of, all in one directory of the system root:
//
//   <root>/etc/hideventrouter/NAME.plist            a configuration
//   <root>/etc/hideventrouter/recordings/NAME.hid   the recording that it plays
//
// Nothing else in the router opens them. They are opened relative to the root's open directory, one
// directory at a time and without following symbolic links, so none of them can refer to a file
// elsewhere on the machine.
//
// Threading: any thread.
// Ownership: an opened file belongs to the caller.
// Errors: FileError, whose text is the cause without the file's name. Only regular files are
//   opened; a pipe in their place cannot block the caller.
// Order: names are sorted, so every process lists them in the same order.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"
#include "router/AtomicFile.h"

namespace router {

class FileError : public std::runtime_error {
 public:
  explicit FileError(const std::string& cause, std::error_code code = {})
      : std::runtime_error(cause), code_(code) {}
  /// The system's error, if there was one.
  [[nodiscard]] const std::error_code& code() const { return code_; }

 private:
  std::error_code code_;
};

/// Tells whether a file has been changed or replaced.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds
  std::int64_t changed = 0;   ///< nanoseconds; unlike `modified`, it cannot be set by anyone
  friend bool operator==(const FileStamp&, const FileStamp&) = default;

  static FileStamp of(const struct stat& status);
  /// Whether any change from now on is certain to get a different time.
  [[nodiscard]] bool isOlderThan(std::chrono::milliseconds age) const;
};

struct OpenFile {
  platform::FileDescriptor descriptor;
  FileStamp stamp;
  mode_t mode = 0;
};

class DeviceFiles {
 public:
  explicit DeviceFiles(platform::SystemRoot root) : root_(std::move(root)) {}

  /// The names of the configurations, without ".plist", at most `limit` of them. Empty if the
  /// directory does not exist.
  [[nodiscard]] std::vector<std::string> configurations(std::size_t limit,
                                                        std::vector<std::string>* problems) const;
  /// For messages.
  [[nodiscard]] std::string configurationPath(const std::string& name) const;
  /// Empty if the file does not exist.
  [[nodiscard]] std::optional<FileStamp> configurationStamp(const std::string& name) const;
  [[nodiscard]] OpenFile openConfiguration(const std::string& name) const;
  /// Replaces an existing one.
  void writeConfiguration(const std::string& name, std::span<const std::uint8_t> content) const;
  /// False, with nothing changed, if the configuration exists already.
  [[nodiscard]] bool createConfiguration(const std::string& name,
                                         std::span<const std::uint8_t> content) const;
  /// False if it does not exist.
  [[nodiscard]] bool removeConfiguration(const std::string& name) const;

  /// Whether this is a valid name for a recording: a plain file name that is not a draft's.
  [[nodiscard]] static bool isRecordingName(std::string_view name);
  /// For messages; without a name, the path of the directory.
  [[nodiscard]] std::string recordingPath(const std::string& name = {}) const;
  /// Empty if the file does not exist.
  [[nodiscard]] std::optional<FileStamp> recordingStamp(const std::string& name) const;
  [[nodiscard]] OpenFile openRecording(const std::string& name) const;
  /// A new recording that has no name yet. Drafts left by killed processes are removed.
  [[nodiscard]] FileDraft draftRecording(mode_t mode) const;
  /// False if it does not exist.
  bool removeRecording(const std::string& name) const;

 private:
  [[nodiscard]] platform::FileDescriptor directory(std::string_view path) const;
  [[nodiscard]] platform::FileDescriptor ownDirectory(std::string_view path) const;

  platform::SystemRoot root_;
};

/// A person's own file; it may be anywhere, and symbolic links are followed.
[[nodiscard]] OpenFile openFile(const std::filesystem::path& path);

/// Fills `buffer`; returns less than its size only at the end of the file.
[[nodiscard]] std::size_t readFile(int descriptor, std::span<char> buffer);
/// Compares two open files from their beginning.
[[nodiscard]] bool haveSameContent(int one, int other);

}  // namespace router
