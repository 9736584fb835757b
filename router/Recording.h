// Recordings of HID devices in the hid-recorder text format.
//
//   # comment
//   D: 0                                 which device the lines below are of (0 until the first
//   such line) R: 52 05 01 09 02 …                  length and bytes of the report descriptor N:
//   QEMU QEMU USB Mouse               name P: usb-0000:00:06.0-2/input0         physical path I: 3
//   0627 0001                       bus, vendor and product, hexadecimal E: 000000.012619 4 00 ff
//   1b 00       time in seconds, length and bytes of one input report
//
// A file may hold several devices; a Recording is one of them. Lines of the other kinds that
// recorders write (one capital letter and a colon) are passed over, and so are blank lines.
//
// Times are those of the recorder's clock. They are kept as they are: they may restart within a
// file, and some recordings have none (all 0). What to make of that is the player's business.
//
// Threading: a Recording is a value, immutable once read. Ownership: reports are spans into it.
// Errors: RecordingError, one line "file:line: cause" ("file: cause" where no line is to blame).
// Order: reports keep the order of the file.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace router {

inline constexpr std::size_t kMaxRecordingBytes = std::size_t{64} << 20;
inline constexpr std::size_t kMaxRecordingLineBytes = std::size_t{256} << 10;

/// Whether `text` is UTF-8 without control characters: names are printed, in logs and on terminals.
[[nodiscard]] bool isPrintableText(std::string_view text);

class RecordingError : public std::runtime_error {
 public:
  explicit RecordingError(const std::string& text, std::error_code code = {})
      : std::runtime_error(text), code_(code) {}
  /// Why the file could not be opened or read; none when its content is at fault.
  [[nodiscard]] const std::error_code& code() const { return code_; }

 private:
  std::error_code code_;
};

class Recording {
 public:
  struct Header {
    std::string name;
    std::string physicalPath;
    std::uint32_t bus = 0;
    std::uint32_t vendor = 0;
    std::uint32_t product = 0;
    std::vector<std::uint8_t> reportDescriptor;
  };

  /// What `text` says about device number `device`. `fileName` is for errors.
  static Recording parse(std::string_view text, const std::string& fileName,
                         std::uint32_t device = 0);
  static Recording read(const std::filesystem::path& file, std::uint32_t device = 0);

  /// The lines before the device's first report, without a look at the rest of the file.
  static Header readHeader(const std::filesystem::path& file, std::uint32_t device = 0);

  [[nodiscard]] const Header& header() const { return header_; }
  [[nodiscard]] std::size_t reportCount() const { return reports_.size(); }
  [[nodiscard]] std::span<const std::uint8_t> report(std::size_t index) const;
  [[nodiscard]] std::chrono::microseconds time(std::size_t index) const {
    return reports_[index].time;
  }

 private:
  friend class RecordingParser;
  struct Report {
    std::chrono::microseconds time{};
    std::uint32_t offset = 0;  // into bytes_
    std::uint32_t length = 0;
  };
  Header header_;
  std::vector<Report> reports_;
  std::vector<std::uint8_t> bytes_;  // of all reports
};

}  // namespace router
