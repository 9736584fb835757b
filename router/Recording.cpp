#include "router/Recording.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <optional>

#include "platform/foundation/NSString.h"
#include "router/ReportDescriptor.h"

namespace router {

namespace {

/// The next word of `line`, which is shortened by it; empty at the end.
std::string_view takeWord(std::string_view* line) {
  const std::size_t begin = std::min(line->find_first_not_of(" \t"), line->size());
  const std::size_t end = std::min(line->find_first_of(" \t", begin), line->size());
  const std::string_view word = line->substr(begin, end - begin);
  line->remove_prefix(end);
  return word;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
  const std::size_t end = text.find_last_not_of(" \t\r");
  return end == std::string_view::npos || end < begin ? std::string_view()
                                                      : text.substr(begin, end - begin + 1);
}

/// The whole of `word` as a number of that base.
std::optional<std::uint64_t> number(std::string_view word, int base) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, base);
  if (word.empty() || error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return value;
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

[[noreturn]] void failToRead(const std::filesystem::path& file, int error) {
  const std::error_code code(error, std::generic_category());
  throw RecordingError(file.string() + ": cannot be read: " + code.message(), code);
}

/// The whole regular file. O_NONBLOCK, so that a pipe in its place cannot hold up the caller.
std::string contentsOf(const std::filesystem::path& file) {
  const Descriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (fd.get() < 0) failToRead(file, errno);
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0) failToRead(file, errno);
  if (!S_ISREG(status.st_mode)) throw RecordingError(file.string() + ": is no regular file");
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > kMaxRecordingBytes) {
    throw RecordingError(file.string() + ": is larger than " + std::to_string(kMaxRecordingBytes) +
                         " bytes");
  }
  std::string text(size, '\0');
  std::size_t filled = 0;
  while (filled < text.size()) {
    const ssize_t count = ::read(fd.get(), text.data() + filled, text.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) failToRead(file, errno);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  text.resize(filled);
  return text;
}

}  // namespace

bool isPrintableText(std::string_view text) {
  const bool hasControl =
      std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; });
  return !hasControl && platform::isValidUTF8(text);
}

class RecordingParser {
 public:
  enum class Extent { HeaderOnly, Whole };

  RecordingParser(const std::string& fileName, std::uint32_t device, Extent extent)
      : fileName_(fileName), device_(device), extent_(extent) {}

  Recording parse(std::string_view text) {
    if (text.size() > kMaxRecordingBytes) {
      throw RecordingError(fileName_ + ": is larger than " + std::to_string(kMaxRecordingBytes) +
                           " bytes");
    }
    while (!text.empty() && !done_) {
      const std::size_t length = std::min(text.find('\n'), text.size());
      ++lineNumber_;
      takeLine(text.substr(0, length));
      text.remove_prefix(std::min(length + 1, text.size()));
    }
    if (!hasDescriptor_) {
      throw RecordingError(fileName_ + ": has no report descriptor of device " +
                           std::to_string(device_));
    }
    return std::move(recording_);
  }

 private:
  [[noreturn]] void fail(const std::string& cause) const {
    throw RecordingError(fileName_ + ":" + std::to_string(lineNumber_) + ": " + cause);
  }

  void takeLine(std::string_view line) {
    if (line.size() > kMaxRecordingLineBytes) {
      fail("the line is longer than " + std::to_string(kMaxRecordingLineBytes) + " bytes");
    }
    line = trimmed(line);
    if (line.empty() || line.front() == '#') return;
    if (line.size() < 2 || line[0] < 'A' || line[0] > 'Z' || line[1] != ':')
      fail("is no line of a recording");
    const char kind = line[0];
    line.remove_prefix(2);
    if (kind == 'D') {
      takeDevice(line);
    } else if (currentDevice_ == device_) {
      takeDeviceLine(kind, line);
    }
  }

  void takeDeviceLine(char kind, std::string_view line) {
    switch (kind) {
      case 'R':
        takeDescriptor(line);
        break;
      case 'N':
        takeText(line, "name", &recording_.header_.name);
        break;
      case 'P':
        takeText(line, "physical path", &recording_.header_.physicalPath);
        break;
      case 'I':
        takeIdentity(line);
        break;
      case 'E':
        takeReport(line);
        break;
      default:
        break;
    }
  }

  void takeDevice(std::string_view line) {
    const auto device = number(takeWord(&line), 10);
    if (!device || *device > std::numeric_limits<std::uint32_t>::max() || !trimmed(line).empty()) {
      fail("the device number is none");
    }
    currentDevice_ = static_cast<std::uint32_t>(*device);
  }

  void takeDescriptor(std::string_view line) {
    if (hasDescriptor_) fail("a second report descriptor of the same device");
    appendBytes(line, kMaxDescriptorBytes, &recording_.header_.reportDescriptor);
    hasDescriptor_ = true;
  }

  void takeText(std::string_view line, const char* what, std::string* out) const {
    const std::string_view text = trimmed(line);
    if (!isPrintableText(text)) fail(std::string("the ") + what + " is no printable text");
    *out = text;
  }

  void takeIdentity(std::string_view line) {
    for (std::uint32_t* part :
         {&recording_.header_.bus, &recording_.header_.vendor, &recording_.header_.product}) {
      const auto value = number(takeWord(&line), 16);
      if (!value || *value > std::numeric_limits<std::uint32_t>::max()) {
        fail("bus, vendor and product must be three hexadecimal numbers");
      }
      *part = static_cast<std::uint32_t>(*value);
    }
    if (!trimmed(line).empty()) fail("there is more than bus, vendor and product");
  }

  void takeReport(std::string_view line) {
    if (!hasDescriptor_) fail("a report before the report descriptor");
    if (extent_ == Extent::HeaderOnly) {
      done_ = true;
      return;
    }
    Recording::Report report;
    report.time = time(takeWord(&line));
    report.offset = static_cast<std::uint32_t>(recording_.bytes_.size());
    report.length = appendBytes(line, kMaxReportBytes, &recording_.bytes_);
    recording_.reports_.push_back(report);
  }

  /// "12.000345": whole seconds and up to six decimals.
  [[nodiscard]] std::chrono::microseconds time(std::string_view word) const {
    constexpr std::uint64_t kMaxSeconds = 10'000'000'000;
    constexpr std::size_t kDecimals = 6;
    const std::size_t point = std::min(word.find('.'), word.size());
    const auto seconds = number(word.substr(0, point), 10);
    std::optional<std::uint64_t> fraction = 0;
    if (point < word.size()) {
      const std::string_view digits = word.substr(point + 1);
      fraction = digits.size() <= kDecimals ? number(digits, 10) : std::nullopt;
      for (std::size_t i = digits.size(); fraction && i < kDecimals; ++i) *fraction *= 10;
    }
    if (!seconds || *seconds > kMaxSeconds || !fraction) fail("the time is no number of seconds");
    return std::chrono::seconds(*seconds) + std::chrono::microseconds(*fraction);
  }

  /// "3 01 ff 7f": a count and so many bytes. Returns the count.
  std::uint32_t appendBytes(std::string_view line, std::size_t limit,
                            std::vector<std::uint8_t>* out) const {
    const auto count = number(takeWord(&line), 10);
    if (!count) fail("the number of bytes is missing");
    if (*count > limit) fail("more than " + std::to_string(limit) + " bytes are announced");
    std::uint64_t found = 0;
    for (std::string_view word = takeWord(&line); !word.empty(); word = takeWord(&line)) {
      const auto byte = word.size() <= 2 ? number(word, 16) : std::nullopt;
      if (!byte) fail("'" + printable(word) + "' is no byte");
      if (++found <= *count) out->push_back(static_cast<std::uint8_t>(*byte));
    }
    if (found != *count) {
      fail(std::to_string(*count) + " bytes are announced, " + std::to_string(found) +
           " are there");
    }
    return static_cast<std::uint32_t>(*count);
  }

  static std::string printable(std::string_view word) {
    constexpr std::size_t kShown = 16;
    std::string text(word.substr(0, kShown));
    for (char& c : text) {
      if (c < ' ' || c > '~') c = '?';
    }
    return text;
  }

  const std::string& fileName_;
  const std::uint32_t device_;
  const Extent extent_;
  std::uint32_t currentDevice_ = 0;
  std::size_t lineNumber_ = 0;
  bool hasDescriptor_ = false;
  bool done_ = false;
  Recording recording_;
};

Recording Recording::parse(std::string_view text, const std::string& fileName,
                           std::uint32_t device) {
  return RecordingParser(fileName, device, RecordingParser::Extent::Whole).parse(text);
}

Recording Recording::read(const std::filesystem::path& file, std::uint32_t device) {
  return parse(contentsOf(file), file.string(), device);
}

Recording::Header Recording::readHeader(const std::filesystem::path& file, std::uint32_t device) {
  const std::string fileName = file.string();
  RecordingParser parser(fileName, device, RecordingParser::Extent::HeaderOnly);
  return parser.parse(contentsOf(file)).header();
}

std::span<const std::uint8_t> Recording::report(std::size_t index) const {
  const Report& report = reports_[index];
  return std::span(bytes_).subspan(report.offset, report.length);
}

}  // namespace router
