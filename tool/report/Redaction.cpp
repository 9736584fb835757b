#include "tool/report/Redaction.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>

#include "platform/foundation/PrintableText.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"

namespace tool {

namespace {

using Words = std::vector<std::string_view>;

constexpr char kGone = '\x01';  // no text has it: control characters are made harmless first
constexpr std::string_view kRemoved = "[removed]";
constexpr std::size_t kSmallestSecret = 4;

// Words beside which a number is harmless.
const Words& wordsBeforeNumbers() {
  static const Words all = {"process", "pid",     "user",   "uid",        "gid",
                            "session", "status",  "signal", "code",       "error",
                            "errno",   "version", "line",   "router",     "started",
                            "exit",    "level",   "mode",   "newstarted", "newclientstatus",
                            "carries", "are",     "lost"};
  return all;
}
const Words& wordsBehindNumbers() {
  static const Words all = {"more",         "can",         "mib",     "of",      "in",
                            "reports",      "sessions",    "devices", "lines",   "older",
                            "bytes",        "connections", "ms",      "seconds", "clients",
                            "milliseconds", "times"};
  return all;
}
const Words& wordsThatAnnounceASerialNumber() {
  static const Words all = {"serial",          "serialnumber", "serialno", "sn",  "uniq",
                            "unique",          "uuid",         "hid_uniq", "s/n", "id_serial",
                            "id_serial_short", "iserial"};
  return all;
}
const Words& wordsBetweenAnnouncementAndNumber() {
  static const Words all = {"number", "no", "no.", "nr", "nr.", "id", "is", "was", "string"};
  return all;
}
/// Words that could be bytes in hexadecimal letters.
const Words& wordsOfHexadecimalLetters() {
  static const Words all = {"a",    "ad",   "be",   "dead", "deaf",
                            "deed", "face", "fade", "feed", "cafe"};
  return all;
}
/// Path components that are the same on every machine.
const Words& commonComponents() {
  static const Words all = {"Contents",
                            "Helpers",
                            "Library",
                            "LaunchDaemons",
                            "LaunchServices",
                            "MacOS",
                            "PrivilegedHelperTools",
                            "bin",
                            "build",
                            "dev",
                            "etc",
                            "hideventrouter",
                            "home",
                            "lib",
                            "libexec",
                            "local",
                            "log",
                            "opt",
                            "proc",
                            "root",
                            "run",
                            "share",
                            "state",
                            "sys",
                            "tmp",
                            "usr",
                            "var",
                            "wlhid",
                            "wlhid-jobd",
                            "system.log",
                            "system.log.0",
                            "jobd.sock",
                            ".local",
                            "com.quillmar.hideventrouter",
                            "com.quillmar.hideventrouter.plist",
                            "com.quillmar.hideventrouter.sock",
                            "com.quillmar.hideventrouter.status.plist"};
  return all;
}

bool isAmong(const Words& words, std::string_view word) {
  return std::ranges::find(words, word) != words.end();
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isHexLetter(char c) {
  return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isBlank(char c) {
  return c == ' ' || c == '\t';
}
bool isWordCharacter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return std::isalnum(byte) != 0 || byte >= 0x80 || c == kGone ||
         std::string_view("_-.+#%@*").find(c) != std::string_view::npos;
}

bool hasDigit(std::string_view text) {
  return std::ranges::any_of(text, isDigit);
}

std::string lowered(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](unsigned char c) { return std::tolower(c); });
  return result;
}

/// "-12", "1.0", "12." at the end of a sentence; short enough to be a count.
bool isNumberOrVersion(std::string_view text) {
  if (text.starts_with('-')) text.remove_prefix(1);
  if (text.ends_with('.')) text.remove_suffix(1);
  if (text.empty() || text.size() > 12 || !isDigit(text.front()) || !isDigit(text.back()))
    return false;
  return std::ranges::all_of(text, [](char c) { return isDigit(c) || c == '.'; });
}

/// "0xe00002c0"
bool isHexadecimalCode(std::string_view text) {
  if (!text.starts_with("0x") || text.size() < 3 || text.size() > 10) return false;
  text.remove_prefix(2);
  return std::ranges::all_of(text, [](char c) { return isDigit(c) || isHexLetter(c); });
}

/// Letters that could be bytes: "ff", "dead".
bool couldBeBytes(std::string_view text) {
  return (text.size() <= 2 || text.size() % 4 == 0) && std::ranges::all_of(text, isHexLetter);
}

struct Word {
  std::size_t begin = 0;
  std::size_t size = 0;
  std::string lower;
  bool isPath = false;
  bool gone = false;
};

/// Where a path that starts at `begin` ends.
std::size_t endOfPath(std::string_view line, std::size_t begin) {
  std::size_t end = begin;
  while (end < line.size() && !isBlank(line[end]) &&
         std::string_view("\"'()<>,;|").find(line[end]) == std::string_view::npos)
    ++end;
  while (end > begin + 1 && (line[end - 1] == ':' || line[end - 1] == '.')) --end;
  return end;
}

bool startsPath(std::string_view line, std::size_t at) {
  return line[at] == '/' && (at == 0 || !isWordCharacter(line[at - 1]));
}

std::vector<Word> wordsOf(std::string_view line) {
  std::vector<Word> words;
  for (std::size_t at = 0; at < line.size();) {
    Word word{at, 0, {}, startsPath(line, at), false};
    std::size_t end = at;
    if (word.isPath) {
      end = endOfPath(line, at);
    } else {
      while (end < line.size() && isWordCharacter(line[end])) ++end;
    }
    if (end == at) {
      ++at;
      continue;
    }
    word.size = end - at;
    if (!word.isPath) word.lower = lowered(line.substr(at, word.size));
    words.push_back(std::move(word));
    at = end;
  }
  return words;
}

std::string_view lowerAt(const std::vector<Word>& words, std::size_t index) {
  return index < words.size() ? std::string_view(words[index].lower) : std::string_view();
}

bool isAnnounced(const std::vector<Word>& words, std::size_t index) {
  if (isAmong(wordsBetweenAnnouncementAndNumber(), words[index].lower)) return false;
  const std::string_view before = lowerAt(words, index - 1);
  const std::string_view earlier = lowerAt(words, index - 2);
  const bool between = isAmong(wordsBetweenAnnouncementAndNumber(), before);
  return isAmong(wordsThatAnnounceASerialNumber(), between ? earlier : before) ||
         (before == "n" && earlier == "s");
}

bool isHarmlessNumber(const std::vector<Word>& words, std::size_t index,
                      const std::set<std::uint64_t>& registryEntryIDs) {
  const std::string& word = words[index].lower;
  const auto number = parseNumber(word);
  if (number && registryEntryIDs.contains(*number)) return true;
  const std::string_view before = lowerAt(words, index - 1);
  if (isHexadecimalCode(word)) return before == "code" || before == "error" || before == "status";
  // "NSCocoaErrorDomain 260"
  return isNumberOrVersion(word) &&
         (isAmong(wordsBeforeNumbers(), before) || before.ends_with("domain") ||
          isAmong(wordsBehindNumbers(), lowerAt(words, index + 1)));
}

/// Bytes in letters alone are told by their company: in a row of words that could all be bytes,
/// everything from the first that is no ordinary word to the last goes, if there are two.
void removeRowsOfBytes(std::vector<Word>& words) {
  const auto isOrdinary = [](const Word& word) {
    return !word.gone && isAmong(wordsOfHexadecimalLetters(), word.lower);
  };
  const auto endsRow = [](const Word& word) {
    return word.isPath || (!word.gone && !couldBeBytes(word.lower));
  };
  for (auto row = words.begin(); row != words.end();) {
    const auto end = std::find_if(row, words.end(), endsRow);
    const auto first = std::find_if_not(row, end, isOrdinary);
    auto last = end;
    while (last != first && isOrdinary(*std::prev(last))) --last;
    if (last - first > 1) std::for_each(first, last, [](Word& word) { word.gone = true; });
    row = end == words.end() ? end : std::next(end);
  }
}

void markWhatGoes(std::vector<Word>& words, bool digitsStay,
                  const std::set<std::uint64_t>& registryEntryIDs) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    Word& word = words[i];
    if (word.isPath) continue;
    const bool digits = hasDigit(word.lower);
    word.gone = isAnnounced(words, i) ||
                (digits && word.lower.find("serial") != std::string::npos) ||
                word.lower.find(kGone) != std::string::npos;
    if (word.gone || digitsStay) continue;
    word.gone = (digits && !isHarmlessNumber(words, i, registryEntryIDs)) ||
                (word.lower.size() >= 8 && couldBeBytes(word.lower));
  }
  if (!digitsStay) removeRowsOfBytes(words);
}

/// One "[removed]" for what is removed side by side.
std::string withMarks(std::string_view text) {
  constexpr std::string_view kBetween = " ,:;-";
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != kGone) {
      result += text[at];
      continue;
    }
    result += kRemoved;
    for (std::size_t next = text.find_first_not_of(kBetween, at + 1);
         next != std::string_view::npos && text[next] == kGone;
         next = text.find_first_not_of(kBetween, at + 1))
      at = next;
  }
  return result;
}

/// Passes over one field and the blanks behind it. False where a character of it is not `allowed`.
template <class Predicate>
bool passField(std::string_view line, std::size_t& at, Predicate allowed) {
  const std::size_t begin = at;
  while (at < line.size() && line[at] != ' ' && allowed(line[at])) ++at;
  if (at == begin || at == line.size() || line[at] != ' ') return false;
  at = std::min(line.find_first_not_of(' ', at), line.size());
  return true;
}

/// Where the free text of "Nov 21 03:12:45 host name[345]: text" begins, or 0.
std::size_t endOfSystemLogHeader(std::string_view line) {
  const auto isLetter = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; };
  const auto isTime = [](char c) { return isDigit(c) || c == ':'; };
  const auto isAnything = [](char) { return true; };
  std::size_t at = 0;
  if (!passField(line, at, isLetter) || !passField(line, at, isDigit) ||
      !passField(line, at, isTime) || !passField(line, at, isAnything))
    return 0;
  const std::size_t open = line.find('[', at);
  if (open == std::string_view::npos) return 0;
  const bool named = std::ranges::all_of(line.substr(at, open - at), [&](char c) {
    return isLetter(c) || c == '.' || c == '-' || c == '_';
  });
  const std::size_t close = line.find_first_not_of("0123456789", open + 1);
  return named && close != std::string_view::npos && line[close] == ']' ? close + 1 : 0;
}

/// Where the message of "2026-11-21T07:13:42.123456Z <3> function:42 [tags] message" begins, or 0.
std::size_t endOfRecentLineHeader(std::string_view line) {
  constexpr std::size_t kTimeBytes = 26;  // without its Z
  const std::string_view behindTime = line.substr(std::min(line.size(), kTimeBytes));
  if (!behindTime.starts_with("Z <") || line[10] != 'T') return 0;
  std::size_t at = line.find("> ", kTimeBytes);
  while (at != std::string_view::npos) {
    at = line.find(':', at + 1);
    if (at == std::string_view::npos) return 0;
    const std::size_t end = line.find_first_not_of("0123456789", at + 1);
    if (end != std::string_view::npos && end > at + 1 && line[end] == ' ') {
      if (end + 1 < line.size() && line[end + 1] == '[') {
        const std::size_t close = line.find("] ", end);
        if (close != std::string_view::npos) return close + 1;
      }
      return end;
    }
  }
  return 0;
}

std::string filteredComponents(std::string_view path) {
  std::string result;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t slash = std::min(path.find('/', at), path.size());
    const std::string_view component = path.substr(at, slash - at);
    if (component.empty() || component == "." || isAmong(commonComponents(), component)) {
      result += component;
    } else {
      const bool repeated = result.ends_with(std::string(kRemoved) + "/");
      if (repeated) result.pop_back();
      if (!repeated) result += kRemoved;
    }
    if (slash < path.size()) result += '/';
    at = slash + 1;
  }
  return result;
}

/// The rest of `path` below `directory`, or nothing.
std::string_view below(std::string_view path, std::string_view directory) {
  if (directory.size() <= 1 || !path.starts_with(directory)) return {};
  path.remove_prefix(directory.size());
  return path.starts_with('/') ? path : std::string_view();
}

}  // namespace

Redactor Redactor::lettingEverythingThrough() {
  return {};
}

Redactor::Redactor(Knowledge knowledge) : active_(true), knowledge_(std::move(knowledge)) {
  std::erase_if(knowledge_.secrets,
                [](const std::string& secret) { return secret.size() < kSmallestSecret; });
  // The longer first: one may be a part of another.
  std::ranges::sort(knowledge_.secrets,
                    [](const auto& a, const auto& b) { return a.size() > b.size(); });
}

std::string Redactor::withoutSecrets(std::string line) const {
  for (const std::string& secret : knowledge_.secrets) {
    std::size_t at = line.find(secret);
    if (at == std::string::npos) continue;
    std::string rest;
    std::size_t done = 0;
    for (; at != std::string::npos; at = line.find(secret, done)) {
      rest.append(line, done, at - done).append(1, kGone);
      done = at + secret.size();
    }
    line = rest.append(line, done);
  }
  return line;
}

namespace {

constexpr std::size_t kAsLongAsItIs = std::string::npos;

/// A line that ends as other systems' lines do has no more to it than one of ours.
std::string printable(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  return platform::printableLine(line, kAsLongAsItIs);
}

}  // namespace

std::string Redactor::redacted(std::string_view line, bool digitsStay) const {
  const std::string harmless = withoutSecrets(printable(line));
  auto words = wordsOf(harmless);
  markWhatGoes(words, digitsStay, knowledge_.registryEntryIDs);
  std::string result;
  std::size_t done = 0;
  for (const Word& word : words) {
    result.append(harmless, done, word.begin - done);
    const std::string_view whole = std::string_view(harmless).substr(word.begin, word.size);
    if (word.gone) {
      result += kGone;
    } else {
      result += word.isPath ? path(whole) : std::string(whole);
    }
    done = word.begin + word.size;
  }
  return withMarks(result.append(harmless, done));
}

std::string Redactor::text(std::string_view line) const {
  return active_ ? redacted(line, false) : std::string(line);
}

std::string Redactor::logLine(std::string_view line) const {
  if (!active_) return std::string(line);
  const std::size_t header = std::max(endOfSystemLogHeader(line), endOfRecentLineHeader(line));
  return withMarks(withoutSecrets(platform::printableLine(line.substr(0, header), kAsLongAsItIs))) +
         text(line.substr(header));
}

std::string Redactor::name(std::string_view name) const {
  if (!active_) return std::string(name);
  // Redacted before it is cut: half a secret would not be known.
  constexpr std::size_t kLookedAt = 16 * kMaximumNameBytes;
  std::string result = redacted(name.substr(0, kLookedAt), true);
  if (result.size() <= kMaximumNameBytes && name.size() <= kLookedAt) return result;
  std::size_t end = std::min(result.size(), kMaximumNameBytes);
  while (end > 0 && end < result.size() && (static_cast<unsigned char>(result[end]) & 0xc0) == 0x80)
    --end;
  return result.substr(0, end) + "…";
}

std::string Redactor::version(std::string_view version) const {
  return isNumberOrVersion(version) ? std::string(version) : text(version);
}

std::string Redactor::path(std::string_view path) const {
  if (!active_) return std::string(path);
  const std::string_view inRoot = below(path, knowledge_.root.native());
  return inRoot.empty() ? filteredComponents(path) : "<root>" + filteredComponents(inRoot);
}

void RedactedLines::take(std::string_view part) {
  const std::size_t kept = std::min(part.size(), kMaximumLineBytes - line_.size());
  line_.append(part.substr(0, kept));
  cut_ += part.size() - kept;
}

std::string RedactedLines::takeLine() {
  std::string line = std::exchange(line_, {});
  const std::size_t cut = std::exchange(cut_, 0);
  if (cut == 0) return redactor_.logLine(line);
  // The last word may be only half of one.
  while (!line.empty() && !isBlank(line.back())) line.pop_back();
  return redactor_.logLine(line) + "(the rest of a long line is left out)";
}

std::string RedactedLines::feed(std::string_view bytes) {
  std::string result;
  if (binary_) return result;
  const std::size_t nul = bytes.find('\0');
  binary_ = nul != std::string_view::npos;
  if (binary_) bytes = bytes.substr(0, nul);
  for (std::size_t feed = bytes.find('\n'); feed != std::string_view::npos;
       feed = bytes.find('\n')) {
    take(bytes.substr(0, feed));
    result += takeLine() + "\n";
    bytes.remove_prefix(feed + 1);
  }
  take(bytes);
  if (!binary_) return result;
  line_.clear();
  cut_ = 0;
  return result + "(the rest is no text, and is left out)\n";
}

std::string RedactedLines::finish() {
  return binary_ || (line_.empty() && cut_ == 0) ? std::string() : takeLine();
}

std::vector<std::string> uniqueStringsOfDevices(const std::filesystem::path& hidDevices) {
  constexpr std::array<std::string_view, 2> kKeys{"HID_UNIQ=", "UNIQ="};
  std::vector<std::string> found;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(hidDevices, ignored)) {
    std::ifstream in(entry.path() / "device/uevent");
    for (std::string line; std::getline(in, line);) {
      for (const std::string_view key : kKeys) {
        if (line.starts_with(key) && line.size() > key.size())
          found.push_back(line.substr(key.size()));
      }
    }
  }
  return found;
}

}  // namespace tool
