// The files that devices are made of, all of them in one directory of the system root:
//
//   <root>/etc/hideventrouter/NAME.plist            a configuration
//   <root>/etc/hideventrouter/recordings/NAME.hid   the recording that it plays
//
// Nothing else in the router opens one. They are reached from the root's open directory, one
// directory at a time and through no symbolic link, so none of them can mean a file elsewhere on
// the machine.
//
// Threading: any thread. Ownership: an opened file is the caller's.
// Errors: FileError, whose text is the cause without the file's name. Only regular files are
//   opened, and a pipe in their place cannot hold up the caller.
// Order: names are sorted, so that every process walks them in the same order.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"
#include "router/AtomicFile.h"

namespace router {

class FileError : public std::runtime_error {
 public:
  explicit FileError(const std::string& cause, std::error_code code = {})
      : std::runtime_error(cause), code_(code) {}
  /// Why the system refused, where it did.
  [[nodiscard]] const std::error_code& code() const { return code_; }

 private:
  std::error_code code_;
};

/// What tells that a file has changed or is another one.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds
  std::int64_t changed = 0;   ///< nanoseconds; unlike the former nobody can set it
  friend bool operator==(const FileStamp&, const FileStamp&) = default;

  static FileStamp of(const struct stat& status);
  /// Whether a change from now on bears another time for certain.
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

  /// The names of the configurations, without ".plist", at most `limit` of them. A directory that
  /// is not there has none.
  [[nodiscard]] std::vector<std::string> configurations(std::size_t limit,
                                                        std::vector<std::string>* problems) const;
  /// For people.
  [[nodiscard]] std::string configurationPath(const std::string& name) const;
  /// Nothing where there is no such file.
  [[nodiscard]] std::optional<FileStamp> configurationStamp(const std::string& name) const;
  [[nodiscard]] OpenFile openConfiguration(const std::string& name) const;
  /// Replaces one of that name.
  void writeConfiguration(const std::string& name, std::span<const std::uint8_t> content) const;
  /// False, with nothing changed, where there is one of that name.
  [[nodiscard]] bool createConfiguration(const std::string& name,
                                         std::span<const std::uint8_t> content) const;
  /// False where there is none.
  [[nodiscard]] bool removeConfiguration(const std::string& name) const;

  /// Whether a recording may be called that: nothing but a file's name, and not a draft's.
  [[nodiscard]] static bool isRecordingName(std::string_view name);
  /// For people; without a name that of the directory.
  [[nodiscard]] std::string recordingPath(const std::string& name = {}) const;
  /// Nothing where there is no such file.
  [[nodiscard]] std::optional<FileStamp> recordingStamp(const std::string& name) const;
  [[nodiscard]] OpenFile openRecording(const std::string& name) const;
  /// A new recording, which has no name yet. Drafts of processes that were killed are removed.
  [[nodiscard]] FileDraft draftRecording(mode_t mode) const;
  /// False where there is none.
  bool removeRecording(const std::string& name) const;

 private:
  [[nodiscard]] platform::FileDescriptor directory(std::string_view path) const;
  [[nodiscard]] platform::FileDescriptor ownDirectory(std::string_view path) const;

  platform::SystemRoot root_;
};

/// A person's own file, wherever it lies and whatever links lead to it.
[[nodiscard]] OpenFile openFile(const std::filesystem::path& path);

/// Fills as much of `buffer` as the file has; less only at its end.
[[nodiscard]] std::size_t readFile(int descriptor, std::span<char> buffer);
/// Of two open files, from their first bytes.
[[nodiscard]] bool haveSameContent(int one, int other);

}  // namespace router
