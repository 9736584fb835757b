// SPDX-License-Identifier: Apache-2.0

// The wire conformance set: messages in hex, their receivers, and what each receiver must make of
// them.
//
// Errors: std::runtime_error with file and line if a file is missing or does not follow the
//   notation in docs/wire-protocol.md.
// Order: messages as in the files, files by name.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace conformance {

using Bytes = std::vector<std::uint8_t>;

/// The receiver, and what has happened on the connection before.
enum class Receiver {
  Client,       ///< the router's hello has arrived; request 1, to start routing, is pending
  ClientFirst,  ///< like Client, but nothing has arrived yet
  Router,       ///< the client's hello has arrived
  RouterFirst,  ///< nothing has arrived yet
  Directory,    ///< the hello of an application that watches devices has arrived
  Watcher,      ///< the device directory's hello has arrived; request 1, to watch, is pending
  BareFirst,    ///< an end that exports nothing and expects nothing; nothing has arrived yet
};

enum class Verdict { Accepted, Refused, Breach, Incomplete };

struct WireMessage {
  std::string name;
  Receiver receiver = Receiver::Client;
  Verdict verdict = Verdict::Accepted;
  std::string reason;  ///< of a breach; for a refusal the class
  Bytes bytes;
};

/// Decodes a text such as "0f 02 (00 #u32)*3": "(…)*N" repeats, "#u8", "#u16", "#u32" and "#u64"
/// write the number of the innermost repetition, counted from 0, "#b8" and so on write it with its
/// highest byte first. Throws std::runtime_error for anything else and for more than 32 MiB.
[[nodiscard]] Bytes bytesOfNotation(std::string_view text);

/// Parses the messages of one file's text; `where` is its name in errors.
[[nodiscard]] std::vector<WireMessage> parseWireMessages(const std::string& text,
                                                         const std::string& where);

/// All messages of the set, from the source tree of this build.
[[nodiscard]] const std::vector<WireMessage>& wireMessages();

/// What the receiver has received before the message; may be empty.
[[nodiscard]] const Bytes& prelude(Receiver receiver);

}  // namespace conformance
