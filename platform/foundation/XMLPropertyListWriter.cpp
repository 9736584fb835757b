// SPDX-License-Identifier: Apache-2.0

#include <cmath>

#include "platform/foundation/Base64.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/PropertyListCoding.h"
#include "platform/foundation/Text.h"

namespace platform {
namespace {

constexpr std::string_view kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

class XMLWriter {
 public:
  std::string write(const NSObject& root) {
    text_ = kHeader;
    append(root, 0);
    text_ += "</plist>\n";
    checkPropertyListSize(text_);
    return std::move(text_);
  }

 private:
  void append(const NSObject& object, std::size_t depth) {
    countObject();
    checkPropertyListSize(text_);
    if (const auto* array = dynamic_cast<const NSArray*>(&object))
      return appendArray(*array, depth);
    if (const auto* dictionary = dynamic_cast<const NSDictionary*>(&object)) {
      return appendDictionary(*dictionary, depth);
    }
    text_.append(depth, '\t');
    appendScalar(object);
    text_ += '\n';
  }

  void appendScalar(const NSObject& object) {
    if (const auto* string = dynamic_cast<const NSString*>(&object)) {
      appendElement("string", escaped(string->UTF8String()));
    } else if (const auto* number = dynamic_cast<const NSNumber*>(&object)) {
      appendNumber(*number);
    } else if (const auto* data = dynamic_cast<const NSData*>(&object)) {
      appendElement("data", base64(data->span()));
    } else if (const auto* date = dynamic_cast<const NSDate*>(&object)) {
      const double seconds = date->timeIntervalSinceReferenceDate();
      if (!isPropertyListDate(seconds)) throw PropertyListFault("a date out of range");
      appendElement("date", propertyListDateText(seconds));
    } else {
      throw PropertyListFault("an object of class " + std::string(object.className()));
    }
  }

  void appendNumber(const NSNumber& number) {
    if (const auto* truth = std::get_if<bool>(&number.value())) {
      text_ += *truth ? "<true/>" : "<false/>";
    } else if (const auto* real = std::get_if<double>(&number.value())) {
      appendElement("real", realText(*real));
    } else {
      appendElement("integer", number.description());
    }
  }

  static std::string realText(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value > 0 ? "+infinity" : "-infinity";
    return shortestText(value);
  }

  void appendArray(const NSArray& array, std::size_t depth) {
    if (!openContainer("array", array.count(), depth)) return;
    for (std::size_t i = 0; i < array.count(); ++i) append(*array.objectAtIndex(i), depth + 1);
    closeContainer("array", depth);
  }

  void appendDictionary(const NSDictionary& dictionary, std::size_t depth) {
    if (!openContainer("dict", dictionary.count(), depth)) return;
    for (const auto& [key, value] : dictionary.entries()) {
      const auto* name = dynamic_cast<const NSString*>(key.get());
      if (name == nullptr) throw PropertyListFault("a dictionary key that is not a string");
      countObject();
      text_.append(depth + 1, '\t');
      appendElement("key", escaped(name->UTF8String()));
      text_ += '\n';
      append(*value, depth + 1);
    }
    closeContainer("dict", depth);
  }

  /// False for an empty container, which is then complete.
  bool openContainer(std::string_view name, std::size_t members, std::size_t depth) {
    if (depth >= kPropertyListDepth) throw PropertyListFault("nested too deeply");
    text_.append(depth, '\t').append("<").append(name).append(members == 0 ? "/>\n" : ">\n");
    return members != 0;
  }

  void closeContainer(std::string_view name, std::size_t depth) {
    text_.append(depth, '\t').append("</").append(name).append(">\n");
  }

  void appendElement(std::string_view name, std::string_view content) {
    text_.append("<").append(name).append(">").append(content);
    text_.append("</").append(name).append(">");
  }

  void countObject() {
    if (++objects_ > kPropertyListObjects) throw PropertyListFault("too many objects");
  }

  // A conforming XML reader would turn a bare carriage return into a line feed.
  static std::string escaped(std::string_view plain) {
    std::string text;
    for (std::size_t position = 0; position < plain.size();) {
      const std::size_t begin = position;
      const char32_t c = nextCodePoint(plain, position);
      if (!isXMLCharacter(c))
        throw PropertyListFault("a string with a character that XML does not allow");
      if (c == '<')
        text += "&lt;";
      else if (c == '>')
        text += "&gt;";
      else if (c == '&')
        text += "&amp;";
      else if (c == '\r')
        text += "&#13;";
      else
        text += plain.substr(begin, position - begin);
    }
    return text;
  }

  std::size_t objects_ = 0;
  std::string text_;
};

}  // namespace

std::string XMLPropertyList(const NSObject& root) {
  return XMLWriter().write(root);
}

}  // namespace platform
