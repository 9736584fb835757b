// A zip archive that is written piece by piece into a new file.
//
// Threading: one thread. Ownership: the file must outlive the archive.
// Errors: Failure, "FILE: cause"; the archive is of no use after one.
// Order: begin, write as often as need be, end; then the next file; at last finish.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "tool/files/NewFile.h"

struct archive;

namespace tool {

class ReportArchive {
 public:
  explicit ReportArchive(NewFile& file);
  ~ReportArchive();
  ReportArchive(const ReportArchive&) = delete;
  ReportArchive& operator=(const ReportArchive&) = delete;

  /// A file of the archive, whose size need not be known yet. `name`: a relative path.
  void begin(const std::string& name);
  void write(std::span<const std::uint8_t> bytes);
  void write(std::string_view text);
  /// Returns the size of the file in bytes.
  std::uint64_t end();
  void finish();

 private:
  static long long writeToFile(struct archive*, void* self, const void* bytes, std::size_t size);
  void check(int result);
  [[noreturn]] void fail();

  NewFile& file_;
  std::exception_ptr failure_;  // of the file, on its way through the library
  struct Deleter {
    void operator()(struct archive* archive) const;
  };
  std::unique_ptr<struct archive, Deleter> archive_;
  std::uint64_t written_ = 0;
};

}  // namespace tool
