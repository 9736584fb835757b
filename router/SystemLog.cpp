// SPDX-License-Identifier: Apache-2.0

#include "router/SystemLog.h"

#include <utility>
#include <vector>

namespace router {
namespace {

using platform::system::Journal;
using platform::system::JournalField;

void write(const Journal& journal, const LogEntry& entry) {
  std::vector<JournalField> fields;
  for (const auto& [name, value] : entry.fields) fields.push_back({name, value});
  journal.write(entry.isNotable ? Journal::Priority::Notice : Journal::Priority::Info, entry.line,
                fields);
}

BackgroundLog::Write writerTo(Journal journal, platform::FileDescriptor directory) {
  const auto classic = std::make_shared<ClassicLog>(std::move(directory));
  return [journal = std::move(journal), classic](const LogEntry& entry) {
    write(journal, entry);
    classic->write(entry);
  };
}

}  // namespace

SystemLog::SystemLog(Journal journal, platform::FileDescriptor directory,
                     const RouterLimits& limits)
    : background_(writerTo(std::move(journal), std::move(directory))),
      routings_([this](LogEntry entry) { background_.add(std::move(entry)); }, limits) {}

RouterLog SystemLog::sink() {
  return
      [self = shared_from_this()](const platform::LogLine& line) { self->background_.add({line}); };
}

}  // namespace router
