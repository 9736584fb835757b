// SPDX-License-Identifier: Apache-2.0

#include <charconv>
#include <limits>
#include <vector>

#include "platform/foundation/Base64.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/PropertyListCoding.h"
#include "platform/foundation/Text.h"

namespace platform {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The subset of XML that property lists use: elements, whose attributes are ignored, text with the
// predefined entities and character references, CDATA, comments, processing instructions, and a
// leading DOCTYPE. An internal DTD is refused, and with it all entities that the document defines.
class XMLReader {
 public:
  explicit XMLReader(std::string_view text) : text_(text) {
    if (text_.starts_with(kByteOrderMark)) text_.remove_prefix(kByteOrderMark.size());
  }

  std::shared_ptr<NSObject> read() {
    checkCharacters();
    skipProlog();
    Tag tag = openingTag();
    const bool wrapped = tag.name == "plist";
    if (wrapped) {
      if (tag.empty) fail("nothing in it");
      skipMisc();
      if (rest().starts_with("</")) fail("nothing in it");
      tag = openingTag();
    }
    auto root = value(tag, 0);
    if (wrapped) closingTag("plist");
    skipMisc();
    if (!rest().empty()) fail("something after its end");
    return root;
  }

 private:
  struct Tag {
    std::string_view name;
    bool empty = false;  // <name/>
  };

  [[noreturn]] static void fail(const std::string& why) { throw PropertyListFault(why); }

  [[nodiscard]] std::string_view rest() const { return text_.substr(position_); }

  void checkCharacters() const {
    if (!isValidUTF8(text_)) fail("text that is not UTF-8");
    for (std::size_t position = 0; position < text_.size();) {
      if (!isXMLCharacter(nextCodePoint(text_, position)))
        fail("a character that XML does not allow");
    }
  }

  bool skip(std::string_view begin, std::string_view end) {
    if (!rest().starts_with(begin)) return false;
    const auto found = text_.find(end, position_ + begin.size());
    if (found == std::string_view::npos) fail("a missing end");
    position_ = found + end.size();
    return true;
  }

  void skipMisc() {
    do {
      position_ = std::min(text_.find_first_not_of(kBlanks, position_), text_.size());
    } while (skip("<!--", "-->") || skip("<?", "?>"));
  }

  void skipProlog() {
    skipMisc();
    if (rest().starts_with("<!DOCTYPE")) {
      position_ = endOfMarkup(position_);
      skipMisc();
    }
  }

  /// The position after the ">" that ends the markup at `position`; a quoted ">" does not count.
  [[nodiscard]] std::size_t endOfMarkup(std::size_t position) const {
    for (char quote = '\0'; position < text_.size(); ++position) {
      const char c = text_[position];
      if (quote != '\0') {
        if (c == quote) quote = '\0';
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (c == '[') {
        fail("an internal document type definition");
      } else if (c == '>') {
        return position + 1;
      }
    }
    fail("a missing end");
  }

  Tag openingTag() {
    skipMisc();
    if (!rest().starts_with('<')) fail(rest().empty() ? "a missing end" : "text between elements");
    const std::size_t end = endOfMarkup(position_);
    std::string_view inside = text_.substr(position_ + 1, end - position_ - 2);
    position_ = end;
    const bool empty = inside.ends_with('/');
    if (empty) inside.remove_suffix(1);
    return {inside.substr(0, inside.find_first_of(kBlanks)), empty};
  }

  bool atClosingTag() {
    skipMisc();
    return rest().starts_with("</");
  }

  void closingTag(std::string_view name) {
    if (!atClosingTag()) fail("a missing end");
    position_ += 2;
    if (!rest().starts_with(name)) fail("an end tag that does not match its start tag");
    position_ += name.size();
    position_ = std::min(text_.find_first_not_of(kBlanks, position_), text_.size());
    if (!rest().starts_with('>')) fail("an end tag that does not match its start tag");
    ++position_;
  }

  std::shared_ptr<NSObject> value(const Tag& tag, std::size_t depth) {
    if (++objects_ > kPropertyListObjects) fail("too many objects");
    if (tag.name == "dict") return dictionary(tag, depth);
    if (tag.name == "array") return array(tag, depth);
    if (tag.name == "string") return str(text(tag));
    const bool truth = tag.name == "true";
    if (truth || tag.name == "false") {
      if (!trimmed(text(tag)).empty()) fail("text in a boolean");
      return NSNumber::numberWithBool(truth);
    }
    if (tag.name == "integer") return integer(trimmed(text(tag)));
    if (tag.name == "real") return real(trimmed(text(tag)));
    if (tag.name == "date") return date(trimmed(text(tag)));
    if (tag.name == "data") return data(text(tag));
    fail("an element of an unknown kind");
  }

  std::shared_ptr<NSObject> array(const Tag& tag, std::size_t depth) {
    if (depth >= kPropertyListDepth) fail("nested too deeply");
    std::vector<std::shared_ptr<NSObject>> objects;
    if (!tag.empty) {
      while (!atClosingTag()) objects.push_back(value(openingTag(), depth + 1));
      closingTag(tag.name);
    }
    return NSArray::arrayWithObjects(std::move(objects));
  }

  std::shared_ptr<NSObject> dictionary(const Tag& tag, std::size_t depth) {
    if (depth >= kPropertyListDepth) fail("nested too deeply");
    std::vector<NSDictionary::Entry> entries;
    if (!tag.empty) {
      while (!atClosingTag()) entries.push_back(entry(depth));
      closingTag(tag.name);
    }
    return NSDictionary::dictionaryWithEntries(std::move(entries));
  }

  NSDictionary::Entry entry(std::size_t depth) {
    const Tag tag = openingTag();
    if (tag.name != "key") fail("a dictionary value without a key");
    if (++objects_ > kPropertyListObjects) fail("too many objects");
    auto key = str(text(tag));
    if (atClosingTag()) fail("a dictionary key without a value");
    return {std::move(key), value(openingTag(), depth + 1)};
  }

  /// The text between the tag and its closing tag, which is consumed.
  std::string text(const Tag& tag) {
    std::string content;
    if (tag.empty) return content;
    for (;;) {
      const std::size_t end = std::min(text_.find_first_of("<&", position_), text_.size());
      content += text_.substr(position_, end - position_);
      position_ = end;
      if (rest().starts_with('&')) {
        appendReference(content);
      } else if (rest().starts_with("<![CDATA[")) {
        const std::size_t begin = position_ + std::string_view("<![CDATA[").size();
        skip("<![CDATA[", "]]>");
        content += text_.substr(begin, position_ - std::string_view("]]>").size() - begin);
      } else if (!skip("<!--", "-->") && !skip("<?", "?>")) {
        break;
      }
    }
    closingTagHere(tag.name);
    return content;
  }

  // Here, unlike between elements, blanks before the closing tag belong to the text.
  void closingTagHere(std::string_view name) {
    if (!rest().starts_with("</"))
      fail(rest().empty() ? "a missing end" : "an element within text");
    closingTag(name);
  }

  void appendReference(std::string& content) {
    static constexpr struct {
      std::string_view name;
      char character;
    } entities[] = {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
    const std::size_t end = text_.find(';', position_);
    if (end == std::string_view::npos) fail("a reference without an end");
    const std::string_view name = text_.substr(position_ + 1, end - position_ - 1);
    position_ = end + 1;
    if (name.starts_with('#')) return appendUTF8(content, characterNumbered(name.substr(1)));
    for (const auto& entity : entities) {
      if (entity.name == name) {
        content += entity.character;
        return;
      }
    }
    fail("an unknown entity");
  }

  static char32_t characterNumbered(std::string_view number) {
    const bool hexadecimal = number.starts_with('x');
    if (hexadecimal) number.remove_prefix(1);
    const auto code = integerOf<std::uint32_t>(number, hexadecimal ? 16 : 10);
    if (!code || *code > 0x10FFFF || (*code >= 0xD800 && *code <= 0xDFFF) ||
        !isXMLCharacter(*code)) {
      fail("a reference to an invalid character");
    }
    return *code;
  }

  template <class Integer>
  static std::optional<Integer> integerOf(std::string_view text, int base) {
    Integer number = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number, base);
    if (text.empty() || error != std::errc() || stopped != end) return std::nullopt;
    return number;
  }

  static std::shared_ptr<NSObject> integer(std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) text.remove_prefix(2);
    const auto magnitude = integerOf<std::uint64_t>(text, hexadecimal ? 16 : 10);
    if (!magnitude) fail("a malformed integer, or one of more than 64 bits");
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (negative && *magnitude > largest + 1) fail("an integer of more than 64 bits");
    if (!negative && *magnitude > largest) return NSNumber::numberWithUnsignedLongLong(*magnitude);
    return NSNumber::numberWithLongLong(
        static_cast<std::int64_t>(negative ? 0 - *magnitude : *magnitude));
  }

  static std::shared_ptr<NSObject> real(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc() || stopped != end) fail("a malformed real");
    return NSNumber::numberWithDouble(number);
  }

  static std::shared_ptr<NSObject> date(std::string_view text) {
    const auto seconds = propertyListDate(text);
    if (!seconds) fail("a malformed date");
    return NSDate::dateWithTimeIntervalSinceReferenceDate(*seconds);
  }

  static std::shared_ptr<NSObject> data(std::string_view text) {
    const auto bytes = bytesOfBase64(text);
    if (!bytes) fail("data that is not valid Base64");
    return NSData::dataWithBytes(*bytes);
  }

  std::string_view text_;
  std::size_t position_ = 0;
  std::size_t objects_ = 0;
};

}  // namespace

std::shared_ptr<NSObject> objectFromXMLPropertyList(std::string_view text) {
  return XMLReader(text).read();
}

}  // namespace platform
