// SPDX-License-Identifier: Apache-2.0

// Entries with fields in the system's journal.
//
// An entry is a line of the program's own table (platform/foundation/LogTemplate.h) and fields that
// an administrator can filter by. Values come from anywhere, so each is made one bounded, printable
// line: none can become a second field.
//
// Threading: any thread. The journal's own sink may wait while the journal is busy, so nothing that
//   must not wait writes to it.
// Errors: none are raised. Without a journal, or without a sink, entries are lost.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/foundation/LogTemplate.h"

namespace platform::system {

struct JournalField {
  std::string_view name;  ///< capital letters, digits and "_", starting with a letter
  std::string_view value;
};

class Journal {
 public:
  /// As in syslog.
  enum class Priority : std::uint8_t { Error = 3, Warning = 4, Notice = 5, Info = 6 };
  static constexpr std::size_t kMaximumValueCharacters = 500;

  /// Gets the fields of one entry as "NAME=value".
  using Sink = std::function<void(std::span<const std::string> entry)>;

  /// Writes to the system's journal. `identifier` is the program's name there, whatever its process
  /// is called.
  explicit Journal(std::string identifier);
  Journal(std::string identifier, Sink sink)
      : identifier_(std::move(identifier)), sink_(std::move(sink)) {}

  /// Fields whose name is no field name, or that would replace one of the journal's own, are left
  /// out.
  void write(Priority priority, const LogLine& line, std::span<const JournalField> fields) const;

 private:
  std::string identifier_;
  Sink sink_;
};

}  // namespace platform::system
