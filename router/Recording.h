// Recordings of HID devices in the hid-recorder text format.
//
//   # comment
//   D: 0                                 which device the lines below are of (0 until the first
//                                        such line)
//   R: 52 05 01 09 02 …                  length and bytes of the report descriptor
//   N: QEMU QEMU USB Mouse               name
//   P: usb-0000:00:06.0-2/input0         physical path
//   I: 3 0627 0001                       bus, vendor and product, hexadecimal
//   E: 000000.012619 4 00 ff 1b 00       time in seconds, length and bytes of one input report
//
// A file may hold several devices; a reader reads one of them. Lines of the other kinds that
// recorders write (one capital letter and a colon) are passed over, and so are blank lines and a
// byte order mark. A name is made printable and cut to RouterLimits::kNameCharacters.
//
// Times are those of the recorder's clock. They are kept as they are: they may restart within a
// file, and some recordings have none (all 0). What to make of that is the player's business.
//
// Threading: one thread at a time. Ownership: a report's bytes live until the next is read.
// Errors: RecordingError, one line "file:line: cause" ("file: cause" where no line is to blame).
// Order: reports come in the order of the file.
#pragma once

#include <chrono>
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
  /// Why the file could not be opened or read; none when its content is at fault.
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

/// Reads a recording from its beginning to its end. In memory are the line that is read, what lies
/// ahead of it in a buffer of some 10 KiB, and the header: never the file.
class RecordingReader {
 public:
  /// Fills as much of the buffer as there is text; less only at the end.
  using Source = std::function<std::size_t(std::span<char>)>;

  /// `fileName` is for errors.
  RecordingReader(Source source, std::string fileName, std::uint32_t device = 0);

  /// What the lines before the device's first report say, without a look at the rest.
  const RecordingHeader& header();
  /// False at the end.
  bool next(RecordedReport* returnReport);

 private:
  [[noreturn]] void fail(const std::string& cause) const;
  bool nextLine(std::string_view* returnLine);
  bool fill();
  void takeBeginning();
  /// Whether the line is a report of the device.
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
  std::size_t begin_ = 0;  // of what has not been taken yet
  std::size_t end_ = 0;
  std::uint64_t read_ = 0;
  bool isAtEnd_ = false;
  std::size_t lineNumber_ = 0;
  std::uint32_t currentDevice_ = 0;
  bool hasDescriptor_ = false;
  RecordingHeader header_;
  std::optional<std::string_view> found_;  // the next report's line, behind its kind
  std::vector<std::uint8_t> report_;
};

/// What a whole recording is like.
struct RecordingSummary {
  RecordingHeader header;
  std::size_t reports = 0;
  bool hasTimes = false;  ///< whether its reports are not all of one moment
};

[[nodiscard]] RecordingSummary readSummary(RecordingReader& reader);

/// An opened recording, with one reader at a time.
class RecordingFile {
 public:
  /// Takes what a reader takes, as it does.
  using Copy = std::function<void(std::span<const char>)>;

  /// `name` is for errors.
  RecordingFile(OpenFile file, std::string name, std::uint32_t device);
  /// A person's own file: see openFile().
  static RecordingFile at(const std::filesystem::path& path, std::uint32_t device);

  [[nodiscard]] const FileStamp& stamp() const { return file_.stamp; }
  [[nodiscard]] mode_t mode() const { return file_.mode; }
  /// A reader that begins at the beginning. It must not outlive the file.
  [[nodiscard]] RecordingReader read(Copy copy = {}) const;

 private:
  const std::string name_;
  const std::uint32_t device_;
  OpenFile file_;
};

}  // namespace router
