// The wire conformance set: messages in hex, to whom each goes, and what its receiver makes of it.
//
// Threading: functions of their arguments. Ownership: values. Errors: a file that is missing or is
// not written as docs/wire-protocol.md says throws std::runtime_error that names file and line.
// Order: messages as they stand in the files, files by name.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace conformance {

using Bytes = std::vector<std::uint8_t>;

/// Who receives, and what has happened on the connection before.
enum class Receiver {
  Client,       ///< the router's hello has come; request 1, to start routing, waits for its reply
  ClientFirst,  ///< as Client, but nothing has come yet
  Router,       ///< the client's hello has come
  RouterFirst,  ///< nothing has come yet
  BareFirst,    ///< an end that exports nothing and expects nothing; nothing has come yet
};

enum class Verdict { Accepted, Refused, Breach, Incomplete };

struct WireMessage {
  std::string name;
  Receiver receiver = Receiver::Client;
  Verdict verdict = Verdict::Accepted;
  std::string reason;  ///< of a breach; of a refusal the class
  Bytes bytes;
};

/// Bytes of a text such as "0f 02 (00 #u32)*3": "(…)*N" repeats, "#u8", "#u16", "#u32" and "#u64"
/// write the number of the innermost repetition, counted from 0, "#b8" and so on write it with its
/// highest byte first. Throws std::runtime_error, also
/// for more than 32 MiB.
[[nodiscard]] Bytes bytesOfNotation(std::string_view text);

/// Reads the messages of one file's text; `where` names it in errors.
[[nodiscard]] std::vector<WireMessage> parseWireMessages(const std::string& text,
                                                         const std::string& where);

/// All messages of the set, from the source tree that this was built from.
[[nodiscard]] const std::vector<WireMessage>& wireMessages();

/// What stands in the stream before the message; empty for the receivers that have heard nothing.
[[nodiscard]] const Bytes& prelude(Receiver receiver);

}  // namespace conformance
