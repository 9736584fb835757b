// SPDX-License-Identifier: Apache-2.0

// Recordings of HID devices in the hid-recorder text format.
//
//   # comment
//   D: 0                                 device that the lines below belong to (0 until the
//                                        first such line)
//   R: 52 05 01 09 02 …                  length and bytes of the report descriptor
//   N: QEMU QEMU USB Mouse               name
//   P: usb-0000:00:06.0-2/input0         physical path
//   I: 3 0627 0001                       bus, vendor and product, hexadecimal
//   E: 000000.012619 4 00 ff 1b 00       time in seconds, length and bytes of one input report
//
// A file may hold several devices; a reader reads one of them. Lines of other kinds that recorders
// write (one capital letter and a colon) are skipped, as are blank lines and a byte order mark.
// Names are made printable and cut to RouterLimits::kNameCharacters.
//
// Times are those of the recorder's clock, unchanged: they may restart within a file, and some
// recordings have none (all 0). The player decides what to make of that.
//
// Threading: one thread at a time.
// Ownership: a report's bytes are valid until the next one is read.
// Errors: RecordingError, one line "file:line: cause" ("file: cause" if no line is at fault).
// Order: reports come in the order of the file.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "router/DeviceFiles.h"

namespace router {

class RecordingError : public std::runtime_error {
 public:
  explicit RecordingError(const std::string& text, std::error_code code = {})
      : std::runtime_error(text), code_(code) {}
  /// The system's error if the file could not be opened or read; none if its content is invalid.
  [[nodiscard]] const std::error_code& code() const { return code_; }

 private:
  std::error_code code_;
};

struct RecordingHeader {
  std::string name;
  std::string physicalPath;
  std::uint32_t bus = 0;
  std::uint32_t vendor = 0;
  std::uint32_t product = 0;
  std::vector<std::uint8_t> reportDescriptor;
};

struct RecordedReport {
  std::chrono::microseconds time{};
  std::span<const std::uint8_t> bytes;
};

/// Reads a recording from beginning to end. Holds in memory the current line, a read-ahead buffer
/// of some 10 KiB and the header, never the whole file.
class RecordingReader {
 public:
  /// Fills the buffer with text; returns less than its size only at the end.
  using Source = std::function<std::size_t(std::span<char>)>;

  /// `fileName` is for error messages.
  RecordingReader(Source source, std::string fileName, std::uint32_t device = 0);

  /// What the lines before the device's first report say; the rest is not looked at.
  const RecordingHeader& header();
  /// False at the end.
  bool next(RecordedReport* returnReport);

 private:
  [[noreturn]] void fail(const std::string& cause) const;
  bool nextLine(std::string_view* returnLine);
  bool fill();
  void takeBeginning();
  /// Whether the line is a report of this reader's device.
  bool takeLine(std::string_view line);
  void takeDevice(std::string_view line);
  void takeDeviceLine(char kind, std::string_view line);
  void takeDescriptor(std::string_view line);
  void takeIdentity(std::string_view line);
  void takeReport(std::string_view line, RecordedReport* returnReport);
  [[nodiscard]] std::chrono::microseconds time(std::string_view word) const;
  void takeBytes(std::string_view line, std::size_t limit, std::vector<std::uint8_t>* out) const;
  bool findReport();

  Source source_;
  std::string fileName_;
  std::uint32_t device_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;  // of the unread part
  std::size_t end_ = 0;
  std::uint64_t read_ = 0;
  bool isAtEnd_ = false;
  std::size_t lineNumber_ = 0;
  std::uint32_t currentDevice_ = 0;
  bool hasDescriptor_ = false;
  RecordingHeader header_;
  std::optional<std::string_view> found_;  // the next report's line, after its "E:"
  std::vector<std::uint8_t> report_;
};

/// Properties of a whole recording.
struct RecordingSummary {
  RecordingHeader header;
  std::size_t reports = 0;
  bool hasTimes = false;  ///< whether its reports do not all have the same time
};

[[nodiscard]] RecordingSummary readSummary(RecordingReader& reader);

/// An opened recording, for one reader at a time.
class RecordingFile {
 public:
  /// Receives everything that a reader reads, as it is read.
  using Copy = std::function<void(std::span<const char>)>;

  /// `name` is for error messages.
  RecordingFile(OpenFile file, std::string name, std::uint32_t device);
  /// A person's own file: see openFile().
  static RecordingFile at(const std::filesystem::path& path, std::uint32_t device);

  [[nodiscard]] const FileStamp& stamp() const { return file_.stamp; }
  [[nodiscard]] mode_t mode() const { return file_.mode; }
  /// A reader at the beginning of the file. It must not outlive this object.
  [[nodiscard]] RecordingReader read(Copy copy = {}) const;

 private:
  const std::string name_;
  const std::uint32_t device_;
  OpenFile file_;
};

}  // namespace router
