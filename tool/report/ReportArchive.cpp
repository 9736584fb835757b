// SPDX-License-Identifier: Apache-2.0

#include "tool/report/ReportArchive.h"

#include <archive.h>
#include <archive_entry.h>

#include <ctime>

#include "tool/command/Command.h"

namespace tool {

namespace {

struct EntryDeleter {
  void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

}  // namespace

void ReportArchive::Deleter::operator()(struct archive* archive) const {
  archive_write_free(archive);
}

long long ReportArchive::writeToFile(struct archive* /*archive*/, void* self, const void* bytes,
                                     std::size_t size) {
  // The library is never told about a failure: it would leak its compression state. failure_ is
  // checked after every call instead.
  auto* const report = static_cast<ReportArchive*>(self);
  try {
    if (!report->failure_) report->file_.write({static_cast<const std::uint8_t*>(bytes), size});
  } catch (...) {
    report->failure_ = std::current_exception();
  }
  return static_cast<long long>(size);
}

ReportArchive::ReportArchive(NewFile& file) : file_(file), archive_(archive_write_new()) {
  if (!archive_) throw Failure(file_.path() + ": no memory for the archive");
  check(archive_write_set_format_zip(archive_.get()));
  check(archive_write_set_bytes_in_last_block(archive_.get(), 1));
  const auto writer = [](struct archive* archive, void* self, const void* bytes,
                         std::size_t size) -> la_ssize_t {
    return writeToFile(archive, self, bytes, size);
  };
  check(archive_write_open(archive_.get(), this, nullptr, writer, nullptr));
}

ReportArchive::~ReportArchive() {
  // Freeing the archive makes the library write what is left, which nobody needs any more.
  failure_ = std::make_exception_ptr(Failure("given up"));
}

void ReportArchive::begin(const std::string& name) {
  const std::unique_ptr<archive_entry, EntryDeleter> entry(archive_entry_new());
  if (!entry) throw Failure(file_.path() + ": no memory for the archive");
  archive_entry_set_pathname_utf8(entry.get(), name.c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), 0600);
  archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
  check(archive_write_header(archive_.get(), entry.get()));
  written_ = 0;
}

void ReportArchive::write(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const la_ssize_t count = archive_write_data(archive_.get(), bytes.data(), bytes.size());
    if (count <= 0 || failure_) fail();
    written_ += static_cast<std::uint64_t>(count);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

void ReportArchive::write(std::string_view text) {
  write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

std::uint64_t ReportArchive::end() {
  check(archive_write_finish_entry(archive_.get()));
  return written_;
}

void ReportArchive::finish() {
  check(archive_write_close(archive_.get()));
}

void ReportArchive::check(int result) {
  if (result != ARCHIVE_OK || failure_) fail();
}

void ReportArchive::fail() {
  if (failure_) std::rethrow_exception(failure_);
  const char* const why = archive_error_string(archive_.get());
  throw Failure(file_.path() + ": " + (why != nullptr ? why : "the archive cannot be written"));
}

}  // namespace tool
