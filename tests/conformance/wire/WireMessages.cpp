// SPDX-License-Identifier: Apache-2.0

#include "tests/conformance/wire/WireMessages.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace conformance {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{32} << 20;

class Notation {
 public:
  explicit Notation(std::string_view text) : text_(text) {}

  Bytes all() {
    Bytes bytes;
    sequence(bytes, 0);
    if (next_ != text_.size()) fail("a ) without its (");
    return bytes;
  }

 private:
  void sequence(Bytes& bytes, std::uint64_t index) {
    for (skipBlanks(); next_ < text_.size() && text_[next_] != ')'; skipBlanks()) {
      if (text_[next_] == '(') {
        repetition(bytes);
      } else if (text_[next_] == '#') {
        counter(bytes, index);
      } else {
        bytes.push_back(static_cast<std::uint8_t>(number(2, 16)));
      }
      if (bytes.size() > kMaxBytes) fail("more than 32 MiB");
    }
  }
  void repetition(Bytes& bytes) {
    const std::size_t start = ++next_;
    Bytes first;
    sequence(first, 0);
    if (text_.substr(next_, 2) != ")*") fail("a ( without its )*");
    next_ += 2;
    const std::uint64_t times = number(8, 10);
    const std::size_t end = next_;
    if (first.size() * times > kMaxBytes) fail("more than 32 MiB");
    for (std::uint64_t i = 0; i < times; ++i) {
      next_ = start;
      sequence(bytes, i);
    }
    next_ = end;
  }
  void counter(Bytes& bytes, std::uint64_t index) {
    const std::string_view kind = text_.substr(next_, 2);
    if (kind != "#u" && kind != "#b") fail("neither #u nor #b and a width");
    next_ += 2;
    const std::uint64_t bits = number(2, 10);
    if (bits != 8 && bits != 16 && bits != 32 && bits != 64) fail("a counter of odd width");
    for (std::uint64_t shift = 0; shift < bits; shift += 8)
      bytes.push_back(
          static_cast<std::uint8_t>(index >> (kind == "#u" ? shift : bits - 8 - shift)));
  }
  std::uint64_t number(std::size_t mostDigits, int base) {
    const auto digits = text_.substr(next_, mostDigits);
    std::uint64_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    const auto length = static_cast<std::size_t>(end - digits.data());
    if (error != std::errc() || (base == 16 && length != mostDigits)) fail("not a number");
    next_ += length;
    return value;
  }
  void skipBlanks() { next_ = std::min(text_.find_first_not_of(" \n", next_), text_.size()); }
  [[noreturn]] void fail(const char* what) const {
    throw std::runtime_error(std::string(what) + " at character " + std::to_string(next_));
  }

  const std::string_view text_;
  std::size_t next_ = 0;
};

Receiver receiverNamed(const std::string& name) {
  if (name == "client") return Receiver::Client;
  if (name == "client-first") return Receiver::ClientFirst;
  if (name == "router") return Receiver::Router;
  if (name == "router-first") return Receiver::RouterFirst;
  if (name == "directory") return Receiver::Directory;
  if (name == "watcher") return Receiver::Watcher;
  if (name == "bare-first") return Receiver::BareFirst;
  throw std::runtime_error("unknown receiver: " + name);
}

Verdict verdictNamed(const std::string& name) {
  if (name == "accepted") return Verdict::Accepted;
  if (name == "refused") return Verdict::Refused;
  if (name == "breach") return Verdict::Breach;
  if (name == "incomplete") return Verdict::Incomplete;
  throw std::runtime_error("unknown verdict: " + name);
}

/// "[name] to receiver: verdict" or "[name] to receiver: verdict: reason"
WireMessage parseTitle(const std::string& line) {
  const auto nameEnd = line.find("] to ");
  const auto receiverEnd = line.find(": ", nameEnd);
  if (nameEnd == std::string::npos || receiverEnd == std::string::npos)
    throw std::runtime_error("not a message title");
  const std::string verdict = line.substr(receiverEnd + 2);
  const auto verdictEnd = verdict.find(": ");
  WireMessage message;
  message.name = line.substr(1, nameEnd - 1);
  message.receiver = receiverNamed(line.substr(nameEnd + 5, receiverEnd - nameEnd - 5));
  message.verdict = verdictNamed(verdict.substr(0, verdictEnd));
  if (verdictEnd != std::string::npos) message.reason = verdict.substr(verdictEnd + 2);
  const bool needsReason =
      message.verdict == Verdict::Refused || message.verdict == Verdict::Breach;
  if (needsReason == message.reason.empty())
    throw std::runtime_error("refused and breach need a reason, the other verdicts have none");
  return message;
}

std::vector<WireMessage> readAll() {
  const std::filesystem::path folder(WLHID_SOURCE_DIR "/tests/conformance/wire/messages");
  std::set<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) files.insert(entry.path());
  std::vector<WireMessage> all;
  for (const auto& file : files) {
    std::ifstream in(file);
    std::ostringstream text;
    text << in.rdbuf();
    auto messages = parseWireMessages(text.str(), file.filename().string());
    std::move(messages.begin(), messages.end(), std::back_inserter(all));
  }
  return all;
}

Bytes messageNamed(const std::string& name) {
  for (const WireMessage& each : wireMessages())
    if (each.name == name) return each.bytes;
  throw std::runtime_error("the set has no message " + name);
}

}  // namespace

Bytes bytesOfNotation(std::string_view text) {
  return Notation(text).all();
}

std::vector<WireMessage> parseWireMessages(const std::string& text, const std::string& where) {
  std::vector<WireMessage> messages;
  std::string hex;
  std::size_t number = 0;
  const auto finish = [&] {
    if (!messages.empty()) messages.back().bytes = bytesOfNotation(hex);
    hex.clear();
  };
  try {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      ++number;
      if (line.starts_with('#')) continue;
      if (line.starts_with('[')) {
        finish();
        messages.push_back(parseTitle(line));
      } else {
        hex += line.substr(0, line.find(';')) + '\n';
      }
    }
    finish();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(where + ", before line " + std::to_string(number + 1) + ": " +
                             error.what());
  }
  return messages;
}

const std::vector<WireMessage>& wireMessages() {
  static const std::vector<WireMessage> all = readAll();
  return all;
}

const Bytes& prelude(Receiver receiver) {
  static const Bytes none;
  static const Bytes fromRouter = messageNamed("hello-from-router");
  static const Bytes fromClient = messageNamed("hello-from-client");
  static const Bytes fromDirectory = messageNamed("hello-from-directory");
  static const Bytes fromWatcher = messageNamed("hello-from-watcher");
  switch (receiver) {
    case Receiver::Client:
      return fromRouter;
    case Receiver::Router:
      return fromClient;
    case Receiver::Directory:
      return fromWatcher;
    case Receiver::Watcher:
      return fromDirectory;
    default:
      return none;
  }
}

}  // namespace conformance
