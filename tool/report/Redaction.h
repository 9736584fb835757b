// Keeping input and serial numbers out of what a person hands on.
//
// Text that others wrote (a log, an error, a file of a module) is free: nobody can say where in it
// a serial number stands. So the rules are strict, and a reader loses a number rather than a person
// a secret. Of free text stay
//   - words without a digit,
//   - whole numbers and versions beside a word that says what they count or name ("process 345",
//     "status 1", "12 more", "Code=-536870174"), and the registry entry IDs of devices that are
//     there,
//   - paths, but of their components only those that are the same on every machine.
// Everything else that holds a digit is removed, and so are the word behind "serial", "uniq" and
// their like, bytes in hexadecimal letters, and the strings that are known to be secret. A serial
// number of letters alone that nothing announces cannot be told from a word and stays.
//
// Threading: immutable; any thread.
// Order: none. What is removed stands as "[removed]"; neighbours become one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

class Redactor {
 public:
  struct Knowledge {
    std::vector<std::string> secrets;          ///< removed wherever they stand, from 4 bytes on
    std::set<std::uint64_t> registryEntryIDs;  ///< which stay
    std::filesystem::path root;                ///< shown as "<root>"
  };
  /// A longer name of a device is cut.
  static constexpr std::size_t kMaximumNameBytes = 200;

  /// Removes nothing.
  static Redactor lettingEverythingThrough();
  explicit Redactor(Knowledge knowledge);

  /// Whether anything is removed at all.
  [[nodiscard]] bool isActive() const { return active_; }
  /// One line of free text, made printable.
  [[nodiscard]] std::string text(std::string_view line) const;
  /// One line of a log: what precedes the free text (time, host, process; or time, level, site,
  /// tags) stays as it is.
  [[nodiscard]] std::string logLine(std::string_view line) const;
  /// A device's name: known secrets and announced serial numbers are removed, digits stay.
  [[nodiscard]] std::string name(std::string_view name) const;
  [[nodiscard]] std::string version(std::string_view version) const;
  [[nodiscard]] std::string path(std::string_view path) const;

 private:
  Redactor() = default;
  [[nodiscard]] std::string withoutSecrets(std::string line) const;
  [[nodiscard]] std::string redacted(std::string_view line, bool digitsStay) const;

  bool active_ = false;
  Knowledge knowledge_;
};

/// Redacts text that comes in pieces, line by line, in bounded memory.
class RedactedLines {
 public:
  /// Of a longer line only the beginning is kept.
  static constexpr std::size_t kMaximumLineBytes = std::size_t{16} * 1024;

  explicit RedactedLines(const Redactor& redactor) : redactor_(redactor) {}
  /// The redacted lines that are complete by now. After a NUL byte, which no text has, nothing more
  /// comes but a remark.
  [[nodiscard]] std::string feed(std::string_view bytes);
  /// What is left without a line's end.
  [[nodiscard]] std::string finish();

 private:
  void take(std::string_view part);
  [[nodiscard]] std::string takeLine();

  const Redactor& redactor_;
  std::string line_;
  std::size_t cut_ = 0;  // bytes of the line that are not kept
  bool binary_ = false;
};

/// Strings that name one piece of hardware: what the kernel lists as unique of each HID device
/// below `hidDevices` (the directory of "<device>/device/uevent" files), empty where there is none.
[[nodiscard]] std::vector<std::string> uniqueStringsOfDevices(
    const std::filesystem::path& hidDevices);

}  // namespace tool
