// SPDX-License-Identifier: Apache-2.0

#include "tool/picture/PackedReports.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "platform/foundation/Base64.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

using Bytes = std::vector<std::uint8_t>;

void appendNumber(Bytes& out, std::uint64_t number) {
  for (; number >= 0x80; number >>= 7U) out.push_back(static_cast<std::uint8_t>(number | 0x80U));
  out.push_back(static_cast<std::uint8_t>(number));
}

/// Each report's bytes as differences to those of the last one with its ID.
void appendDifferences(Bytes& out, const PictureReports& reports, bool usesReportIDs,
                       std::size_t count) {
  std::array<std::span<const std::uint8_t>, 256> last;
  for (std::size_t i = 0; i < count; ++i) {
    const auto report = reports.report(i);
    auto& before = last[usesReportIDs && !report.empty() ? report[0] : 0];
    for (std::size_t at = 0; at < report.size(); ++at) {
      const bool isID = usesReportIDs && at == 0;
      const std::uint8_t old = isID || at >= before.size() ? 0 : before[at];
      out.push_back(report[at] ^ old);
    }
    before = report;
  }
}

Bytes unpacked(const PictureReports& reports, bool usesReportIDs, std::size_t count) {
  Bytes out;
  out.reserve(count * 4 + (count == 0 ? 0 : reports.ends[count - 1]));
  appendNumber(out, count);
  for (std::size_t i = 0; reports.hasTimes && i < count; ++i)
    appendNumber(
        out, static_cast<std::uint64_t>(reports.times[i] - (i == 0 ? 0 : reports.times[i - 1])));
  for (std::size_t i = 0; i < count; ++i) appendNumber(out, reports.report(i).size());
  appendDifferences(out, reports, usesReportIDs, count);
  return out;
}

struct ArchiveDeleter {
  void operator()(struct archive* archive) const { ::archive_write_free(archive); }
};

void check(struct archive* archive, int result) {
  if (result < ARCHIVE_WARN)
    throw Failure(std::string("cannot compress: ") + ::archive_error_string(archive));
}

Bytes compressed(const Bytes& bytes) {
  const std::unique_ptr<struct archive, ArchiveDeleter> archive(::archive_write_new());
  const std::unique_ptr<struct archive_entry, decltype(&::archive_entry_free)> entry(
      ::archive_entry_new(), &::archive_entry_free);
  if (!archive || !entry) throw Failure("out of memory");
  check(archive.get(), ::archive_write_set_format_raw(archive.get()));
  check(archive.get(), ::archive_write_add_filter_gzip(archive.get()));
  // The same recording gives the same page.
  check(archive.get(),
        ::archive_write_set_filter_option(archive.get(), "gzip", "timestamp", nullptr));
  Bytes out(bytes.size() + bytes.size() / 8 + 65536);
  std::size_t used = 0;
  check(archive.get(), ::archive_write_set_bytes_in_last_block(archive.get(), 1));
  check(archive.get(), ::archive_write_open_memory(archive.get(), out.data(), out.size(), &used));
  ::archive_entry_set_filetype(entry.get(), AE_IFREG);
  check(archive.get(), ::archive_write_header(archive.get(), entry.get()));
  if (::archive_write_data(archive.get(), bytes.data(), bytes.size()) < 0)
    throw Failure(std::string("cannot compress: ") + ::archive_error_string(archive.get()));
  check(archive.get(), ::archive_write_close(archive.get()));
  out.resize(used);
  return out;
}

}  // namespace

PackedReports packReports(const PictureReports& reports, bool usesReportIDs,
                          std::size_t maximumCharacters) {
  std::size_t count = reports.count();
  while (true) {
    std::string text = platform::base64(compressed(unpacked(reports, usesReportIDs, count)));
    if (text.size() <= maximumCharacters || count == 0) return {std::move(text), count};
    const double part = static_cast<double>(maximumCharacters) / static_cast<double>(text.size());
    count = static_cast<std::size_t>(static_cast<double>(count) * part * 0.95);
  }
}

}  // namespace tool
