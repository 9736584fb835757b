// SPDX-License-Identifier: Apache-2.0

#include "platform/system/Journal.h"

#include <sys/uio.h>

#include <algorithm>

#include "platform/foundation/PrintableText.h"

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace platform::system {
namespace {

constexpr std::size_t kMaximumNameLength = 64;

bool isCapital(char c) {
  return c >= 'A' && c <= 'Z';
}

bool isFieldName(std::string_view name) {
  return !name.empty() && name.size() <= kMaximumNameLength && isCapital(name.front()) &&
         std::ranges::all_of(
             name, [](char c) { return isCapital(c) || (c >= '0' && c <= '9') || c == '_'; });
}

bool isTaken(std::string_view name) {
  return name == "MESSAGE" || name == "PRIORITY" || name.starts_with("SYSLOG_");
}

void sendToSystem(std::span<const std::string> entry) {
  std::vector<iovec> fields;
  fields.reserve(entry.size());
  // The journal only reads them.
  for (const std::string& field : entry)
    fields.push_back({const_cast<char*>(field.data()), field.size()});
  sd_journal_sendv(fields.data(), static_cast<int>(fields.size()));
}

}  // namespace

Journal::Journal(std::string identifier) : Journal(std::move(identifier), &sendToSystem) {}

void Journal::write(Priority priority, const LogLine& line,
                    std::span<const JournalField> fields) const {
  if (!sink_) return;
  std::vector<std::string> entry{"MESSAGE=" + line.text(),
                                 "PRIORITY=" + std::to_string(static_cast<unsigned>(priority)),
                                 "SYSLOG_IDENTIFIER=" + identifier_};
  for (const auto& [name, value] : fields) {
    if (!isFieldName(name) || isTaken(name)) continue;
    entry.push_back(std::string(name) + '=' + printableLine(value, kMaximumValueCharacters));
  }
  sink_(entry);
}

}  // namespace platform::system
