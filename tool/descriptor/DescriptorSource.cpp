// SPDX-License-Identifier: Apache-2.0

#include "tool/descriptor/DescriptorSource.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>

#include "platform/services/SystemRoot.h"
#include "router/DeviceFiles.h"
#include "router/Recording.h"
#include "router/RouterLimits.h"
#include "tool/command/Command.h"
#include "tool/routing/DeviceNames.h"

namespace tool {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

bool isText(std::string_view content) {
  return std::ranges::all_of(content, [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x80 || (byte >= ' ' && byte != 0x7f) || kBlanks.find(c) != kBlanks.npos;
  });
}

/// Whether a line begins as the descriptor's does in a recording, "R: 74". Other lines may hold
/// anything.
bool isRecording(std::string_view content) {
  for (std::size_t at = 0; at < content.size(); at = content.find('\n', at) + 1) {
    std::string_view line = content.substr(at);
    if (line.starts_with("R:")) {
      line.remove_prefix(std::min(line.find_first_not_of(" \t", 2), line.size()));
      return !line.empty() && line.front() >= '0' && line.front() <= '9';
    }
    if (line.find('\n') == std::string_view::npos) break;
  }
  return false;
}

/// The text without comments; line feeds stay, so that lines keep their numbers.
std::string withoutComments(std::string_view text) {
  std::string kept;
  for (std::size_t at = 0; at < text.size();) {
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("/*")) {
      const std::size_t length = std::min(rest.find("*/", 2), rest.size() - 2) + 2;
      kept += ' ';
      kept.append(static_cast<std::size_t>(std::ranges::count(rest.substr(0, length), '\n')), '\n');
      at += length;
    } else if (rest.starts_with("//") || rest.starts_with('#')) {
      at += std::min(rest.find('\n'), rest.size());
    } else {
      kept += rest.front();
      ++at;
    }
  }
  return kept;
}

/// Appends the bytes of a word: an even number of digits, or one or two after 0x or \x. False if it
/// is something else.
bool appendWord(std::string_view word, std::vector<std::uint8_t>* bytes) {
  const bool hasPrefix =
      word.starts_with("0x") || word.starts_with("0X") || word.starts_with("\\x");
  if (hasPrefix) word.remove_prefix(2);
  if (word.empty() || (hasPrefix && word.size() > 2) || (word.size() > 2 && word.size() % 2 != 0))
    return false;
  for (std::size_t at = 0; at < word.size(); at += 2) {
    const std::string_view digits = word.substr(at, 2);
    std::uint8_t byte = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (error != std::errc() || end != digits.data() + digits.size()) return false;
    bytes->push_back(byte);
  }
  return true;
}

/// Cuts "\x05\x01" into words, too.
std::size_t endOfWord(std::string_view text) {
  const std::size_t end = text.find_first_of(" \t\r\n,;{}\"'");
  return std::min({end, text.find("\\x", 1), text.size()});
}

std::vector<std::uint8_t> bytesInText(std::string_view content, const std::string& name) {
  const std::string text = withoutComments(content);
  std::vector<std::uint8_t> bytes;
  std::size_t line = 1;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = endOfWord(std::string_view(text).substr(at));
    const std::string_view word = std::string_view(text).substr(at, length);
    if (!word.empty() && !appendWord(word, &bytes)) {
      throw Failure(name + ":" + std::to_string(line) + ": '" + std::string(word) +
                    "' is not a byte (a descriptor is raw bytes, hexadecimal text or a recording)");
    }
    if (length == 0 && text[at] == '\n') ++line;
    at += std::max<std::size_t>(length, 1);
  }
  return bytes;
}

std::string readContent(int descriptor, const std::string& name) {
  std::string content(router::RouterLimits::kDescriptorBytes, '\0');
  std::size_t length = 0;
  while (const std::size_t count =
             router::readFile(descriptor, std::span(content).subspan(length))) {
    length += count;
    if (length > router::RouterLimits::kRecordingBytes) {
      throw Failure(name + ": larger than " +
                    std::to_string(router::RouterLimits::kRecordingBytes) + " bytes");
    }
    if (length == content.size()) content.resize(2 * length);
  }
  content.resize(length);
  return content;
}

std::string readNamed(const std::string& path) try {
  if (path == "-") return readContent(STDIN_FILENO, "standard input");
  return readContent(router::openFile(path).descriptor.get(), path);
} catch (const router::FileError& error) {
  throw Failure(path + ": " + error.what());
}

NamedDescriptor inRecording(std::string_view content, const std::string& name,
                            std::uint32_t device) {
  router::RecordingReader reader(
      [content](std::span<char> buffer) mutable {
        const std::size_t count = content.copy(buffer.data(), buffer.size());
        content.remove_prefix(count);
        return count;
      },
      name, device);
  const router::RecordingHeader& header = reader.header();
  NamedDescriptor result{header.name.empty() ? name : header.name, {}};
  result.facts.reportDescriptor = header.reportDescriptor;
  return result;
}

NamedDescriptor inFile(const std::string& path, std::uint32_t device) {
  const std::string name = path == "-" ? "standard input" : path;
  const std::string content = readNamed(path);
  if (isRecording(content)) return inRecording(content, name, device);
  NamedDescriptor result{name, {}};
  result.facts.reportDescriptor = descriptorBytes(content, name);
  if (result.facts.reportDescriptor.empty()) throw Failure(name + ": holds no descriptor");
  return result;
}

std::optional<KnownDevice> deviceWithID(std::uint64_t registryEntryID) {
  const auto root = platform::SystemRoot::current();
  std::vector<std::string> problems;  // of other devices
  for (const auto& source : router::deviceSources(root, {.udevTime = {}})) {
    for (router::DeviceDescription& description : source->list(&problems)) {
      if (description.registryEntryID != registryEntryID) continue;
      KnownDevice known{std::move(description), {}};
      if (auto facts = source->factsOf(registryEntryID)) {
        known.facts = std::move(*facts);
      } else if (const auto opened = source->open(registryEntryID)) {
        known.facts.reportDescriptor = opened->reportDescriptor();
      }
      return known;
    }
  }
  return std::nullopt;
}

}  // namespace

KnownDevice deviceNamed(const std::string& text) {
  auto known = deviceWithID(registryEntryIDOf(text));
  if (!known) throw Failure("there is no device \"" + text + "\" (wlhid devices lists them)");
  return std::move(*known);
}

std::vector<std::uint8_t> descriptorBytes(std::string_view content, const std::string& name) {
  if (!isText(content)) return {content.begin(), content.end()};
  return bytesInText(content, name);
}

NamedDescriptor descriptorNamed(const std::string& text, std::uint32_t device) {
  std::error_code ignored;
  const bool isPath = text == "-" || text.find('/') != std::string::npos;
  if (isPath || std::filesystem::exists(text, ignored)) return inFile(text, device);
  KnownDevice known = deviceNamed(text);
  return {known.description.name, std::move(known.facts)};
}

}  // namespace tool
