// SPDX-License-Identifier: Apache-2.0

// A zip archive that is written piece by piece into a new file.
//
// Threading: one thread.
// Ownership: the file must outlive the archive.
// Errors: Failure, "FILE: cause"; the archive is unusable after one.
// Order: for each file begin, any number of writes, end; then finish.
#pragma once

#include <cstddef>
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

  /// Begins a file of the archive, of any size. `name`: a relative path.
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
  std::exception_ptr failure_;  // thrown by the file, carried past the library
  struct Deleter {
    void operator()(struct archive* archive) const;
  };
  std::unique_ptr<struct archive, Deleter> archive_;
  std::uint64_t written_ = 0;
};

}  // namespace tool
