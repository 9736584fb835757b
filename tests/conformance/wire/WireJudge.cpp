// SPDX-License-Identifier: Apache-2.0

#include "tests/conformance/wire/WireJudge.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <set>

#include "platform/foundation/PrintableText.h"

namespace conformance {
namespace {

using View = std::span<const std::uint8_t>;

constexpr std::uint64_t kLongestBody = 16'777'216 - 8;
constexpr unsigned kDeepest = 64;
constexpr std::size_t kLongestName = 254;
constexpr std::size_t kSmallestValue = 29;

struct Breach {
  std::string why;
};
struct Refusal {
  std::string what;
};

class Cursor {
 public:
  explicit Cursor(View bytes) : bytes_(bytes) {}
  [[nodiscard]] std::size_t left() const { return bytes_.size() - at_; }
  [[nodiscard]] std::size_t at() const { return at_; }
  [[nodiscard]] View from(std::size_t start) const { return bytes_.subspan(start, at_ - start); }
  View take(std::uint64_t count) {
    if (count > left()) throw Breach{kCut};
    at_ += count;
    return bytes_.subspan(at_ - count, count);
  }
  std::uint64_t number(std::size_t width) {
    const View bytes = take(width);
    std::uint64_t value = 0;
    for (std::size_t i = width; i-- > 0;) value = value << 8U | bytes[i];
    return value;
  }
  std::uint64_t size() {
    const std::uint64_t first = number(1);
    if (first != 255) return first;
    const std::uint64_t value = number(4);
    if (value < 255) throw Breach{kCut};
    return value;
  }
  View block() { return take(size()); }

  static constexpr const char* kCut = "truncated, or a size below 255 in its long form";

 private:
  View bytes_;
  std::size_t at_ = 0;
};

bool isContinuation(View bytes, std::size_t i) {
  return i < bytes.size() && (bytes[i] & 0xC0U) == 0x80;
}

/// Decodes each character, while the layer compares bytes with ranges.
bool isText(View bytes) {
  for (std::size_t i = 0; i < bytes.size();) {
    const std::uint8_t lead = bytes[i];
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if ((lead & 0xC0U) == 0x80 || lead >= 0xF8) return false;
    std::uint32_t character = length == 1 ? lead : lead & (0xFFU >> (length + 1));
    for (std::size_t k = 1; k < length; ++k) {
      if (!isContinuation(bytes, i + k)) return false;
      character = character << 6U | (bytes[i + k] & 0x3FU);
    }
    const std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (character < least[length] || character > 0x10FFFF || surrogate) return false;
    i += length;
  }
  return true;
}

std::string textOf(View bytes) {
  return {bytes.begin(), bytes.end()};
}

double doubleOf(std::uint64_t bits) {
  double value = 0;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

/// The same text for equal dictionary keys and a different one for all others.
std::string keyOfNumber(double value) {
  if (std::isnan(value)) return "number nan";
  if (value == std::floor(value) && std::fabs(value) < 0x1p65) {
    char digits[64];
    std::snprintf(digits, sizeof digits, "number %.0f", value == 0 ? 0.0 : value);
    return digits;
  }
  char exact[64];
  std::snprintf(exact, sizeof exact, "number %a", value);
  return exact;
}

const char* className(std::uint8_t tag) {
  static const char* const names[] = {"",
                                      "NSData",
                                      "NSString",
                                      "NSNumber",
                                      "NSNumber",
                                      "NSNumber",
                                      "NSNumber",
                                      "NSDate",
                                      "NSURL",
                                      "NSArray",
                                      "NSMutableArray",
                                      "NSDictionary",
                                      "NSError",
                                      "KQHIDDeviceElementValue",
                                      "KQIOObject",
                                      "NSMutableArray"};
  return names[tag];
}

using Tags = std::set<std::uint8_t>;

/// The type of one argument or reply value.
struct Rule {
  std::size_t width = 0;  ///< of a number; 0 for an object
  Tags itself;
  Tags inside;
};

struct Method {
  bool request = false;
  std::vector<Rule> arguments;
};

const Tags kAll = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Tags kPropertyList = {1, 2, 3, 4, 5, 6, 7, 9, 10, 11, 15};
const Tags kInDirectoryErrors = {1, 2, 3, 4, 5, 6, 7, 9, 10, 11, 12, 15};
const Tags kInStartErrors = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15};

class ObjectReader {
 public:
  ObjectReader(Cursor& cursor, const Tags& inside) : cursor_(cursor), inside_(inside) {}

  /// Returns a text that equal objects share and others do not. It is empty for an object with
  /// members that is not part of a dictionary key.
  std::string object(const Tags& admitted, bool nullable, unsigned depth) {
    const auto tag = static_cast<std::uint8_t>(cursor_.number(1));
    if (tag > 15) throw Refusal{"an unknown class"};
    if (tag == 0 && !nullable) throw Breach{"nil inside a collection"};
    if (tag == 0) return {};
    if (!admitted.contains(tag)) throw Refusal{className(tag)};
    last_ = tag;
    if (tag <= 8) return scalar(tag);
    if (tag == 13) return value();
    if (tag == 14) return ioObject();
    if (depth == kDeepest) throw Breach{"collections nest more than 64 deep"};
    const std::string same = collection(tag, depth + 1);
    last_ = tag;
    return same;
  }
  /// The tag of the last object that was read.
  [[nodiscard]] std::uint8_t last() const { return last_; }

 private:
  std::string scalar(std::uint8_t tag) {
    if (tag == 1) return "data " + textOf(cursor_.block());
    if (tag == 2) return "string " + text();
    if (tag == 3) {
      const auto flag = cursor_.number(1);
      if (flag > 1) throw Breach{"a boolean other than 0 or 1"};
      return "number " + std::to_string(flag);
    }
    if (tag == 8) {
      const std::string url = text();
      if (url.empty()) throw Breach{"an empty URL"};
      return "url " + url;
    }
    const std::uint64_t bits = cursor_.number(8);
    if (tag == 4) return "number " + std::to_string(static_cast<std::int64_t>(bits));
    if (tag == 5) return "number " + std::to_string(bits);
    if (tag == 6) return keyOfNumber(doubleOf(bits));
    return "date " + keyOfNumber(doubleOf(bits));
  }
  std::string text() {
    const View bytes = cursor_.block();
    if (!isText(bytes)) throw Breach{"text that is not UTF-8"};
    return textOf(bytes);
  }
  std::string optionalText() {
    const auto tag = cursor_.number(1);
    if (tag == 0) return "none";
    if (tag != 2) throw Breach{"neither nil nor a string"};
    return "text " + text();
  }
  std::string value() {
    const std::size_t start = cursor_.at();
    cursor_.take(kSmallestValue - 1);
    cursor_.block();
    return "value " + textOf(cursor_.from(start));
  }
  std::string ioObject() {
    const std::uint64_t entry = cursor_.number(8);
    return "entry " + std::to_string(entry) + " " + optionalText();
  }
  std::string collection(std::uint8_t tag, unsigned depth) {
    if (tag == 12) return error(depth);
    if (tag == 15 && !inside_.contains(13)) throw Refusal{className(13)};
    const std::size_t least = tag == 11 ? 2 : tag == 15 ? kSmallestValue : 1;
    const std::uint64_t count = cursor_.size();
    if (count * least > cursor_.left()) throw Breach{"more members than bytes"};
    if (tag == 11) return entries(count, depth);
    if (tag == 15) return list(count);
    bool onlyValues = count > 0;
    std::string same = "array";
    for (std::uint64_t i = 0; i < count; ++i) {
      append(same, object(inside_, false, depth));
      onlyValues = onlyValues && last_ == 13;
    }
    if (tag == 10 && onlyValues) throw Breach{"element values outside an element value list"};
    return same;
  }
  std::string list(std::uint64_t count) {
    if (count == 0) throw Breach{"an empty element value list"};
    std::string same = "array";
    for (std::uint64_t i = 0; i < count; ++i) append(same, value());
    return same;
  }
  std::string entries(std::uint64_t count, unsigned depth) {
    std::map<std::string, std::string> all;
    View before;
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::size_t start = cursor_.at();
      ++keys_;
      const std::string key = object(inside_, false, depth);
      --keys_;
      const View bytes = cursor_.from(start);
      checkOrder(before, bytes);
      before = bytes;
      all[key] = object(inside_, false, depth);
    }
    if (all.size() != count) throw Breach{kTwice};
    std::string same = "dictionary";
    for (const auto& [key, value] : all) {
      append(same, key);
      append(same, value);
    }
    return same;
  }
  static void checkOrder(View before, View key) {
    const std::string one = textOf(before);
    const std::string other = textOf(key);
    if (one == other) throw Breach{kTwice};
    if (one > other) throw Breach{"dictionary keys not in ascending order"};
  }
  std::string error(unsigned depth) {
    std::string same = "error " + std::to_string(cursor_.number(8));
    append(same, optionalText());
    Tags admitted = inside_;
    admitted.insert(11);
    last_ = 0;
    const std::string info = object(admitted, true, depth);
    if (last_ != 0 && last_ != 11) throw Breach{"a user info that is not a dictionary"};
    append(same, info == "dictionary" ? std::string() : info);
    return same;
  }
  /// Outside keys the text is not needed.
  void append(std::string& same, const std::string& part) const {
    if (keys_ > 0) same += " " + std::to_string(part.size()) + ":" + part;
  }

  static constexpr const char* kTwice = "a duplicate key in a dictionary";

  Cursor& cursor_;
  const Tags& inside_;
  unsigned keys_ = 0;  ///< how many nested keys are being read
  std::uint8_t last_ = 0;
};

void readNumber(Cursor& cursor, std::size_t width) {
  if (cursor.left() < width) throw Breach{"truncated"};
  cursor.take(width);
}

void readValues(Cursor& cursor, const std::vector<Rule>& rules) {
  for (const Rule& rule : rules) {
    if (rule.width > 0) {
      readNumber(cursor, rule.width);
    } else {
      ObjectReader(cursor, rule.inside).object(rule.itself, true, 0);
    }
  }
  if (cursor.left() > 0) throw Breach{"bytes after the last argument"};
}

/// What a receiver exports and expects, and what it has asked for with request 1.
struct Side {
  std::string exported;
  std::string expected;
  std::vector<Method> methods;
  std::vector<Rule> pendingReply;
};

const Rule kNumber32{4, {}, {}};
const Rule kNumber64{8, {}, {}};

const Side& clientSide() {
  static const Side side{"WLHIDEventRouterClientProtocol",
                         "WLHIDEventRouterProtocol",
                         {{false, {{0, {1}, {1}}, kNumber32}}, {false, {{0, {10, 15}, {13}}}}},
                         {{0, {12}, kInStartErrors}}};
  return side;
}

const Side& routerSide() {
  static const Rule dictionary{0, {11}, kAll};
  static const Side side{"WLHIDEventRouterProtocol",
                         "WLHIDEventRouterClientProtocol",
                         {{true, {kNumber64, kNumber64, dictionary, dictionary}}, {false, {}}},
                         {}};
  return side;
}

const Side& directorySide() {
  static const Rule criteria{0, {9, 10, 15}, kPropertyList};
  static const Side side{"WLHIDDeviceDirectoryProtocol",
                         "WLHIDDeviceDirectoryClientProtocol",
                         {{true, {criteria, criteria}}, {true, {kNumber64}}},
                         {}};
  return side;
}

const Side& watcherSide() {
  static const Rule device{0, {11}, kPropertyList};
  static const Rule devices{0, {9, 10, 15}, kPropertyList};
  static const Side side{"WLHIDDeviceDirectoryClientProtocol",
                         "WLHIDDeviceDirectoryProtocol",
                         {{false, {device}}, {false, {device}}, {false, {kNumber64}}},
                         {devices, {0, {12}, kInDirectoryErrors}}};
  return side;
}

const Side& sideOf(Receiver receiver) {
  static const Side bare;
  switch (receiver) {
    case Receiver::Client:
    case Receiver::ClientFirst:
      return clientSide();
    case Receiver::Router:
    case Receiver::RouterFirst:
      return routerSide();
    case Receiver::Directory:
      return directorySide();
    case Receiver::Watcher:
      return watcherSide();
    case Receiver::BareFirst:
      break;
  }
  return bare;
}

class Judge {
 public:
  explicit Judge(Receiver receiver) : side_(sideOf(receiver)) {
    if (!side_.pendingReply.empty()) pending_.insert(1);
  }

  void stream(View bytes) {
    while (!bytes.empty() && result_.state == StreamState::Whole) {
      const std::size_t taken = frame(bytes);
      bytes = bytes.subspan(taken);
    }
  }
  Judgement finish() {
    for ([[maybe_unused]] const auto id : pending_) result_.events.push_back("error 4099");
    return std::move(result_);
  }

 private:
  std::size_t frame(View bytes) {
    try {
      if (bytes.size() < 8) return wait(bytes);
      Cursor header(bytes.first(8));
      const std::uint64_t length = header.number(4);
      const std::uint64_t kind = header.number(1);
      const std::uint64_t reserved = header.number(1);
      const std::uint64_t method = header.number(2);
      if (length > kLongestBody) throw Breach{"a frame of more than 16 MiB"};
      if (kind < 1 || kind > 6) throw Breach{"a frame of unknown kind"};
      if (reserved != 0) throw Breach{"a frame whose reserved byte is not zero"};
      if (bytes.size() - 8 < length) return wait(bytes);
      body(kind, method, bytes.subspan(8, length));
      return 8 + length;
    } catch (const Breach& breach) {
      result_.events.push_back("breach " + breach.why);
      result_.state = StreamState::Breach;
      result_.reason = breach.why;
      return bytes.size();
    }
  }
  std::size_t wait(View bytes) {
    result_.state = StreamState::Incomplete;
    return bytes.size();
  }
  void body(std::uint64_t kind, std::uint64_t method, View bytes) {
    if (!greeted_ && kind != 1) throw Breach{"the first frame is not a hello"};
    if (kind == 2 || kind == 3) return call(kind == 3, method, bytes);
    if (method != 0) throw Breach{"an unexpected method number"};
    if (kind == 1) return hello(bytes);
    if (kind == 4) return reply(bytes);
    if (kind == 5) return dropped(bytes);
    if (!bytes.empty()) throw Breach{"a farewell with a body"};
    result_.state = StreamState::Farewell;
  }
  void hello(View bytes) {
    if (greeted_) throw Breach{"a second hello"};
    greeted_ = true;
    Cursor cursor(bytes);
    std::uint64_t version = 0;
    std::string theirs;
    std::string wanted;
    try {
      if (textOf(cursor.take(4)) != "WLHX") throw Breach{};
      version = cursor.number(2);
      if (version == 2) {
        theirs = name(cursor);
        wanted = name(cursor);
        if (cursor.left() > 0) throw Breach{};
      }
    } catch (const Breach&) {
      throw Breach{"a malformed hello"};
    }
    if (version != 2) throw Breach{"the peer speaks version " + std::to_string(version)};
    if (!side_.expected.empty() && !theirs.empty() && side_.expected != theirs)
      throw Breach{"the peer exports " + shown(theirs) + ", not " + side_.expected};
    if (!side_.exported.empty() && !wanted.empty() && side_.exported != wanted)
      throw Breach{"the peer expects " + shown(wanted) + ", not " + side_.exported};
  }
  static std::string shown(const std::string& name) { return platform::printableLine(name); }
  static std::string name(Cursor& cursor) {
    const View bytes = cursor.block();
    if (bytes.size() > kLongestName || !isText(bytes)) throw Breach{};
    return textOf(bytes);
  }
  void call(bool request, std::uint64_t method, View bytes) {
    Cursor cursor(bytes);
    std::uint64_t id = 0;
    if (request) {
      if (bytes.size() >= 8) id = cursor.number(8);
      if (id == 0) throw Breach{"a request without an ID"};
    }
    const auto& methods = side_.methods;
    if (methods.empty()) return dropWithoutObject(id);
    if (method >= methods.size()) throw Breach{"an unknown method"};
    if (methods[method].request != request)
      throw Breach{"a message sent as a request, or a request as a message"};
    try {
      const std::size_t start = cursor.at();
      readValues(cursor, methods[method].arguments);
      result_.events.push_back("call " + std::to_string(method) + " " + digest(cursor.from(start)));
      if (request) result_.answers.push_back("reply " + std::to_string(id));
    } catch (const Refusal& refusal) {
      refuse(refusal);
      if (request) result_.answers.push_back("dropped " + std::to_string(id));
    }
  }
  void dropWithoutObject(std::uint64_t id) {
    if (id != 0) result_.answers.push_back("dropped " + std::to_string(id));
  }
  void reply(View bytes) {
    Cursor cursor(bytes);
    if (bytes.size() < 8 || pending_.erase(cursor.number(8)) == 0)
      throw Breach{"a reply to a request that is not pending"};
    try {
      const std::size_t start = cursor.at();
      readValues(cursor, side_.pendingReply);
      result_.events.push_back("reply " + digest(cursor.from(start)));
    } catch (const Refusal& refusal) {
      refuse(refusal);
      result_.events.push_back("error 4101");
    } catch (const Breach&) {
      result_.events.push_back("error 4101");
      throw;
    }
  }
  void dropped(View bytes) {
    if (bytes.size() != 8) throw Breach{"a malformed reply-dropped frame"};
    if (pending_.erase(Cursor(bytes).number(8)) == 0)
      throw Breach{"a reply-dropped frame for a request that is not pending"};
    result_.events.push_back("error 4101");
  }
  void refuse(const Refusal& refusal) {
    result_.events.push_back("refused " + refusal.what);
    if (result_.reason.empty()) result_.reason = refusal.what;
  }

  const Side& side_;
  bool greeted_ = false;
  std::set<std::uint64_t> pending_;
  Judgement result_;
};

}  // namespace

Judgement judge(Receiver receiver, std::span<const std::uint8_t> bytes) {
  Judge judge(receiver);
  judge.stream(prelude(receiver));
  judge.stream(bytes);
  return judge.finish();
}

std::string digest(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kShown = 48;
  std::string text;
  if (bytes.size() <= kShown) {
    for (const std::uint8_t byte : bytes) {
      text += "0123456789abcdef"[byte >> 4U];
      text += "0123456789abcdef"[byte & 15U];
    }
    return text;
  }
  std::uint64_t sum = 14695981039346656037ULL;
  for (const std::uint8_t byte : bytes) sum = (sum ^ byte) * 1099511628211ULL;
  return std::to_string(bytes.size()) + " bytes, sum " + std::to_string(sum);
}

}  // namespace conformance
