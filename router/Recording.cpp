// SPDX-License-Identifier: Apache-2.0

#include "router/Recording.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "platform/foundation/PrintableText.h"
#include "router/RouterLimits.h"

namespace router {

namespace {

constexpr std::size_t kChunk = 16384;
constexpr std::string_view kFormat =
    "a recording is text in the hid-recorder format (R:, N:, I:, E:)";

/// Removes the next word from `line` and returns it; empty at the end.
std::string_view takeWord(std::string_view* line) {
  const std::size_t begin = std::min(line->find_first_not_of(" \t"), line->size());
  const std::size_t end = std::min(line->find_first_of(" \t", begin), line->size());
  const std::string_view word = line->substr(begin, end - begin);
  line->remove_prefix(end);
  return word;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t end = text.find_last_not_of(" \t\r");
  if (end == std::string_view::npos) return {};
  const std::size_t begin = text.find_first_not_of(" \t");
  return text.substr(begin, end - begin + 1);
}

/// All of `word` as a number in that base.
std::optional<std::uint64_t> parseNumber(std::string_view word, int base) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, base);
  if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return value;
}

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Reads the word at `*at` as a hexadecimal number of one or two digits and moves `*at` past it; if
/// it is not one, returns a negative number and leaves `*at`. Most of a recording consists of such
/// words.
int takeByte(std::string_view line, std::size_t* at) {
  const auto isEnd = [&](std::size_t i) {
    return i >= line.size() || line[i] == ' ' || line[i] == '\t';
  };
  const int first = digit(line[*at]);
  if (isEnd(*at + 1)) {
    *at += first < 0 ? 0 : 1;
    return first;
  }
  const int second = digit(line[*at + 1]);
  if (first < 0 || second < 0 || !isEnd(*at + 2)) return -1;
  *at += 2;
  return first * 16 + second;
}

/// The format of a file that starts with `text`, if it is a known one other than a recording's.
std::string_view foreignFormat(std::string_view text) {
  if (text.starts_with("\x1f\x8b")) return "compressed with gzip (gunzip unpacks it)";
  if (text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff")) return "text in UTF-16";
  const std::size_t begin = std::min(text.find_first_not_of(" \t\r\n"), text.size());
  if (text.substr(begin).starts_with('{') || text.substr(begin).starts_with('[')) return "JSON";
  return {};
}

}  // namespace

RecordingReader::RecordingReader(Source source, std::string fileName, std::uint32_t device)
    : source_(std::move(source)), fileName_(std::move(fileName)), device_(device) {}

void RecordingReader::fail(const std::string& cause) const {
  throw RecordingError(fileName_ + ":" + std::to_string(lineNumber_) + ": " + cause);
}

const RecordingHeader& RecordingReader::header() {
  findReport();
  if (!hasDescriptor_) {
    throw RecordingError(fileName_ + ": has no report descriptor for device " +
                         std::to_string(device_));
  }
  return header_;
}

bool RecordingReader::next(RecordedReport* returnReport) {
  static_cast<void>(header());
  if (!findReport()) return false;
  takeReport(*found_, returnReport);
  found_.reset();
  return true;
}

/// Reads up to the device's next report, unless it has been found already; false at the end.
bool RecordingReader::findReport() {
  std::string_view line;
  while (!found_ && nextLine(&line)) {
    if (takeLine(line)) found_ = trimmed(line).substr(2);
  }
  return found_.has_value();
}

bool RecordingReader::nextLine(std::string_view* returnLine) {
  for (;;) {
    const std::string_view ahead(buffer_.data() + begin_, end_ - begin_);
    const std::size_t length = std::min(ahead.find('\n'), ahead.size());
    if (length > RouterLimits::kRecordingLineBytes) {
      ++lineNumber_;
      fail("the line is longer than " + std::to_string(RouterLimits::kRecordingLineBytes) +
           " bytes");
    }
    if (length < ahead.size() || (isAtEnd_ && !ahead.empty())) {
      ++lineNumber_;
      begin_ += std::min(length + 1, ahead.size());
      *returnLine = ahead.substr(0, length);
      return true;
    }
    if (!fill()) return false;
  }
}

/// Reads more text into the buffer; false at the end.
bool RecordingReader::fill() {
  if (isAtEnd_) return false;
  std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
            buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
  end_ -= std::exchange(begin_, 0);
  buffer_.resize(end_ + kChunk);
  std::size_t count = 0;
  try {
    count = source_(std::span(buffer_).subspan(end_));
  } catch (const FileError& error) {
    throw RecordingError(fileName_ + ": " + error.what(), error.code());
  }
  isAtEnd_ = count < kChunk;
  end_ += count;
  const bool isBeginning = std::exchange(read_, read_ + count) == 0;
  if (read_ > RouterLimits::kRecordingBytes) {
    throw RecordingError(fileName_ + ": is larger than " +
                         std::to_string(RouterLimits::kRecordingBytes) + " bytes");
  }
  if (isBeginning) takeBeginning();
  return true;
}

void RecordingReader::takeBeginning() {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  const std::string_view text(buffer_.data(), end_);
  if (text.starts_with(kByteOrderMark)) begin_ = kByteOrderMark.size();
  const std::string_view foreign = foreignFormat(text.substr(begin_));
  if (foreign.empty()) return;
  throw RecordingError(fileName_ + ": is " + std::string(foreign) + "; " + std::string(kFormat));
}

bool RecordingReader::takeLine(std::string_view line) {
  line = trimmed(line);
  if (line.empty() || line.front() == '#') return false;
  if (line[0] < 'A' || line[0] > 'Z' || line.substr(1, 1) != ":") {
    fail("is not a line of a recording; " + std::string(kFormat));
  }
  const char kind = line[0];
  line.remove_prefix(2);
  if (kind == 'D') {
    takeDevice(line);
  } else if (currentDevice_ == device_) {
    if (kind == 'E' && !hasDescriptor_) fail("a report before the report descriptor");
    if (kind == 'E') return true;
    takeDeviceLine(kind, line);
  }
  return false;
}

void RecordingReader::takeDevice(std::string_view line) {
  const auto device = parseNumber(takeWord(&line), 10);
  if (!device || *device > std::numeric_limits<std::uint32_t>::max() || !trimmed(line).empty()) {
    fail("the device number is invalid");
  }
  currentDevice_ = static_cast<std::uint32_t>(*device);
}

void RecordingReader::takeDeviceLine(char kind, std::string_view line) {
  switch (kind) {
    case 'R':
      takeDescriptor(line);
      break;
    case 'N':
      header_.name = platform::printableLine(trimmed(line), RouterLimits::kNameCharacters);
      break;
    case 'P':
      header_.physicalPath = platform::printableLine(trimmed(line), RouterLimits::kNameCharacters);
      break;
    case 'I':
      takeIdentity(line);
      break;
    default:
      break;
  }
}

void RecordingReader::takeDescriptor(std::string_view line) {
  if (hasDescriptor_) fail("a second report descriptor for the same device");
  takeBytes(line, RouterLimits::kDescriptorBytes, &header_.reportDescriptor);
  hasDescriptor_ = true;
}

void RecordingReader::takeIdentity(std::string_view line) {
  for (std::uint32_t* part : {&header_.bus, &header_.vendor, &header_.product}) {
    const auto value = parseNumber(takeWord(&line), 16);
    if (!value || *value > std::numeric_limits<std::uint32_t>::max()) {
      fail("bus, vendor and product must be three hexadecimal numbers");
    }
    *part = static_cast<std::uint32_t>(*value);
  }
  if (!trimmed(line).empty()) fail("there is text after bus, vendor and product");
}

void RecordingReader::takeReport(std::string_view line, RecordedReport* returnReport) {
  returnReport->time = time(takeWord(&line));
  takeBytes(line, RouterLimits::kReportBytes, &report_);
  returnReport->bytes = report_;
}

/// "12.000345": whole seconds and up to six decimals.
std::chrono::microseconds RecordingReader::time(std::string_view word) const {
  constexpr std::uint64_t kMaxSeconds = 10'000'000'000;
  constexpr std::size_t kDecimals = 6;
  const std::size_t point = std::min(word.find('.'), word.size());
  const auto seconds = parseNumber(word.substr(0, point), 10);
  std::optional<std::uint64_t> fraction = 0;
  if (point < word.size()) {
    const std::string_view digits = word.substr(point + 1);
    fraction = digits.size() <= kDecimals ? parseNumber(digits, 10) : std::nullopt;
    for (std::size_t i = digits.size(); fraction && i < kDecimals; ++i) *fraction *= 10;
  }
  if (!seconds || *seconds > kMaxSeconds || !fraction) fail("the time is not a number of seconds");
  return std::chrono::seconds(*seconds) + std::chrono::microseconds(*fraction);
}

/// "3 01 ff 7f": a count, and as many bytes.
void RecordingReader::takeBytes(std::string_view line, std::size_t limit,
                                std::vector<std::uint8_t>* out) const {
  constexpr std::size_t kShown = 16;
  const auto count = parseNumber(takeWord(&line), 10);
  if (!count) fail("the number of bytes is missing");
  if (*count > limit) fail("more than " + std::to_string(limit) + " bytes are announced");
  out->clear();
  for (std::size_t at = 0; (at = line.find_first_not_of(" \t", at)) != std::string_view::npos;) {
    const int byte = takeByte(line, &at);
    if (byte < 0) {
      line.remove_prefix(at);
      fail("'" + platform::printableLine(takeWord(&line), kShown) + "' is not a byte");
    }
    out->push_back(static_cast<std::uint8_t>(byte));
  }
  if (out->size() != *count) {
    fail(std::to_string(*count) + " bytes are announced, " + std::to_string(out->size()) +
         " follow");
  }
}

RecordingSummary readSummary(RecordingReader& reader) {
  RecordingSummary summary;
  summary.header = reader.header();
  RecordedReport report;
  std::chrono::microseconds first{};
  for (; reader.next(&report); ++summary.reports) {
    if (summary.reports == 0) first = report.time;
    summary.hasTimes = summary.hasTimes || report.time != first;
  }
  return summary;
}

RecordingFile::RecordingFile(OpenFile file, std::string name, std::uint32_t device)
    : name_(std::move(name)), device_(device), file_(std::move(file)) {
  if (static_cast<std::uint64_t>(file_.stamp.size) > RouterLimits::kRecordingBytes) {
    throw RecordingError(name_ + ": is larger than " +
                         std::to_string(RouterLimits::kRecordingBytes) + " bytes");
  }
}

RecordingFile RecordingFile::at(const std::filesystem::path& path, std::uint32_t device) try {
  return {openFile(path), path.string(), device};
} catch (const FileError& error) {
  throw RecordingError(path.string() + ": " + error.what(), error.code());
}

RecordingReader RecordingFile::read(Copy copy) const {
  const int descriptor = file_.descriptor.get();
  ::lseek(descriptor, 0, SEEK_SET);
  return {[descriptor, copy = std::move(copy)](std::span<char> buffer) {
            const std::size_t count = readFile(descriptor, buffer);
            if (copy) copy(buffer.first(count));
            return count;
          },
          name_, device_};
}

}  // namespace router
