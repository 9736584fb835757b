#include "platform/foundation/NSPropertyListSerialization.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>

#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/PropertyListCoding.h"

namespace platform {
namespace {

constexpr std::int64_t kCannotRead = 3840;
constexpr std::int64_t kCannotWrite = 3851;

struct FreeNode {
  void operator()(void* node) const { ::plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

struct FreeMemory {
  void operator()(void* memory) const {
    std::free(memory);
  }  // NOLINT(cppcoreguidelines-no-malloc): libplist's own
};
using Text = std::unique_ptr<char, FreeMemory>;

std::shared_ptr<NSObject> objectOf(plist_t node);

// libplist keeps the sign of an integer to itself, but writes it: only numbers with the top bit set
// need to be asked.
std::shared_ptr<NSNumber> integerOf(plist_t node) {
  std::uint64_t bits = 0;
  ::plist_get_uint_val(node, &bits);
  if (bits <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return NSNumber::numberWithLongLong(static_cast<std::int64_t>(bits));
  }
  const Node copy(::plist_copy(node));
  char* written = nullptr;
  std::uint32_t length = 0;
  ::plist_to_xml(copy.get(), &written, &length);
  const Text xml(written);
  const bool negative =
      xml && std::string_view(xml.get(), length).find("<integer>-") != std::string_view::npos;
  return negative ? NSNumber::numberWithLongLong(static_cast<std::int64_t>(bits))
                  : NSNumber::numberWithUnsignedLongLong(bits);
}

std::shared_ptr<NSObject> arrayOf(plist_t node) {
  std::vector<std::shared_ptr<NSObject>> objects;
  plist_array_iter iterator = nullptr;
  ::plist_array_new_iter(node, &iterator);
  const std::unique_ptr<void, FreeMemory> owner(iterator);
  for (;;) {
    plist_t item = nullptr;
    ::plist_array_next_item(node, iterator, &item);
    if (item == nullptr) return NSArray::arrayWithObjects(std::move(objects));
    auto object = objectOf(item);
    if (!object) return nullptr;
    objects.push_back(std::move(object));
  }
}

std::shared_ptr<NSObject> dictionaryOf(plist_t node) {
  std::vector<NSDictionary::Entry> entries;
  plist_dict_iter iterator = nullptr;
  ::plist_dict_new_iter(node, &iterator);
  const std::unique_ptr<void, FreeMemory> owner(iterator);
  for (;;) {
    char* name = nullptr;
    plist_t item = nullptr;
    ::plist_dict_next_item(node, iterator, &name, &item);
    const Text key(name);
    if (item == nullptr) return NSDictionary::dictionaryWithEntries(std::move(entries));
    auto keyObject = NSString::stringWithUTF8String(key.get());
    auto object = objectOf(item);
    if (!keyObject || !object) return nullptr;
    entries.emplace_back(std::move(keyObject), std::move(object));
  }
}

std::shared_ptr<NSObject> stringOf(plist_t node) {
  std::uint64_t length = 0;
  const char* const text = ::plist_get_string_ptr(node, &length);
  return text == nullptr ? NSString::stringWithUTF8("") : NSString::stringWithUTF8({text, length});
}

std::shared_ptr<NSObject> dataOf(plist_t node) {
  std::uint64_t length = 0;
  const char* const bytes = ::plist_get_data_ptr(node, &length);
  return NSData::dataWithBytes(
      {reinterpret_cast<const std::uint8_t*>(bytes), bytes == nullptr ? 0 : length});
}

std::shared_ptr<NSObject> dateOf(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  ::plist_get_date_val(node, &seconds, &microseconds);
  return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds + microseconds / 1e6);
}

/// Null for a kind that is no property list's (a unique identifier of an archive, a null).
std::shared_ptr<NSObject> objectOf(plist_t node) {
  switch (::plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      ::plist_get_bool_val(node, &value);
      return NSNumber::numberWithBool(value != 0);
    }
    case PLIST_REAL: {
      double value = 0;
      ::plist_get_real_val(node, &value);
      return NSNumber::numberWithDouble(value);
    }
    case PLIST_UINT:
      return integerOf(node);
    case PLIST_STRING:
      return stringOf(node);
    case PLIST_ARRAY:
      return arrayOf(node);
    case PLIST_DICT:
      return dictionaryOf(node);
    case PLIST_DATE:
      return dateOf(node);
    case PLIST_DATA:
      return dataOf(node);
    default:
      return nullptr;
  }
}

std::string faultOf(const NSData& data) {
  if (data.length() == 0) return "no data";
  if (data.length() > kPropertyListBytes) return "larger than 64 MiB";
  if (isBinaryPropertyList(data.span())) return faultOfBinaryPropertyList(data.span());
  return faultOfXMLPropertyList({reinterpret_cast<const char*>(data.bytes()), data.length()});
}

// --- writing
// -----------------------------------------------------------------------------------------------------------

struct CannotWrite {
  const char* why;
};

Node nodeOf(const NSObject& object, std::size_t depth);

Node unsignedNode(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
    return Node(::plist_new_uint(value));
  // A node made from the number itself counts as signed; one that was read as text keeps its full
  // range.
  const std::string text =
      "<plist version=\"1.0\"><integer>" + std::to_string(value) + "</integer></plist>";
  plist_t node = nullptr;
  ::plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &node);
  return Node(node);
}

Node numberNode(const NSNumber& number) {
  if (const auto* truth = std::get_if<bool>(&number.value()))
    return Node(::plist_new_bool(*truth ? 1 : 0));
  if (const auto* integer = std::get_if<std::int64_t>(&number.value())) {
    return Node(::plist_new_uint(static_cast<std::uint64_t>(*integer)));
  }
  if (const auto* natural = std::get_if<std::uint64_t>(&number.value()))
    return unsignedNode(*natural);
  const double real = std::get<double>(number.value());
  if (!std::isfinite(real)) throw CannotWrite{"a number that is not finite"};
  return Node(::plist_new_real(real));
}

const std::string& textWithoutNul(const NSString& string) {
  if (string.UTF8String().find('\0') != std::string::npos)
    throw CannotWrite{"a string with a NUL character"};
  return string.UTF8String();
}

Node dateNode(const NSDate& date) {
  const double seconds = date.timeIntervalSinceReferenceDate();
  if (!(std::abs(seconds) < std::numeric_limits<std::int32_t>::max()))
    throw CannotWrite{"a date out of range"};
  const double whole = std::floor(seconds);
  return Node(::plist_new_date(static_cast<std::int32_t>(whole),
                               static_cast<std::int32_t>((seconds - whole) * 1e6)));
}

Node arrayNode(const NSArray& array, std::size_t depth) {
  Node node(::plist_new_array());
  for (std::size_t i = 0; i < array.count(); ++i) {
    ::plist_array_append_item(node.get(), nodeOf(*array.objectAtIndex(i), depth + 1).release());
  }
  return node;
}

Node dictionaryNode(const NSDictionary& dictionary, std::size_t depth) {
  Node node(::plist_new_dict());
  for (const auto& [key, value] : dictionary.entries()) {
    const auto* name = dynamic_cast<const NSString*>(key.get());
    if (name == nullptr) throw CannotWrite{"a dictionary key that is no string"};
    ::plist_dict_set_item(node.get(), textWithoutNul(*name).c_str(),
                          nodeOf(*value, depth + 1).release());
  }
  return node;
}

Node nodeOf(const NSObject& object, std::size_t depth) {
  if (depth >= kPropertyListDepth) throw CannotWrite{"nested too deeply"};
  if (const auto* string = dynamic_cast<const NSString*>(&object)) {
    return Node(::plist_new_string(textWithoutNul(*string).c_str()));
  }
  if (const auto* number = dynamic_cast<const NSNumber*>(&object)) return numberNode(*number);
  if (const auto* data = dynamic_cast<const NSData*>(&object)) {
    return Node(
        ::plist_new_data(reinterpret_cast<const char*>(data->span().data()), data->length()));
  }
  if (const auto* date = dynamic_cast<const NSDate*>(&object)) return dateNode(*date);
  if (const auto* array = dynamic_cast<const NSArray*>(&object)) return arrayNode(*array, depth);
  if (const auto* dictionary = dynamic_cast<const NSDictionary*>(&object))
    return dictionaryNode(*dictionary, depth);
  throw CannotWrite{"an object of a class that no property list holds"};
}

std::shared_ptr<NSData> dataOf(const Node& root, NSPropertyListFormat format) {
  char* written = nullptr;
  std::uint32_t length = 0;
  if (format == NSPropertyListFormat::XML) {
    ::plist_to_xml(root.get(), &written, &length);
  } else {
    ::plist_to_bin(root.get(), &written, &length);
  }
  const Text owner(written);
  if (!owner) throw CannotWrite{"libplist refused it"};
  return NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(written), length});
}

}  // namespace

std::shared_ptr<NSError> propertyListError(std::int64_t code, std::string_view what) {
  auto info = NSDictionary::dictionaryWithEntries({{str(NSLocalizedDescriptionKey), str(what)}});
  return NSError::errorWithDomain_code_userInfo(str(NSCocoaErrorDomain), code, info);
}

std::shared_ptr<NSObject> readPropertyList(const NSData& data, NSPropertyListFormat* returnFormat,
                                           std::shared_ptr<NSError>* returnError) {
  std::string fault = faultOf(data);
  std::shared_ptr<NSObject> object;
  if (fault.empty()) {
    plist_t root = nullptr;
    ::plist_from_memory(reinterpret_cast<const char*>(data.bytes()),
                        static_cast<std::uint32_t>(data.length()), &root);
    const Node owner(root);
    if (root != nullptr) object = objectOf(root);
    if (!object) fault = "no property list";
  }
  if (returnError != nullptr)
    *returnError =
        object ? nullptr : propertyListError(kCannotRead, "Not a property list: " + fault);
  if (object && returnFormat != nullptr) {
    *returnFormat = isBinaryPropertyList(data.span()) ? NSPropertyListFormat::Binary
                                                      : NSPropertyListFormat::XML;
  }
  return object;
}

std::shared_ptr<NSObject> NSPropertyListSerialization::propertyListWithData_options_format_error(
    const std::shared_ptr<NSData>& data, unsigned long /*options*/,
    NSPropertyListFormat* returnFormat, std::shared_ptr<NSError>* returnError) {
  if (data)
    return foundationProvider().load()->propertyListWithData(data, returnFormat, returnError);
  if (returnError != nullptr)
    *returnError = propertyListError(kCannotRead, "Not a property list: no data");
  return nullptr;
}

std::shared_ptr<NSData> NSPropertyListSerialization::dataWithPropertyList_format_error(
    const std::shared_ptr<NSObject>& object, NSPropertyListFormat format,
    std::shared_ptr<NSError>* returnError) {
  if (returnError != nullptr) *returnError = nullptr;
  try {
    if (!object) throw CannotWrite{"no object"};
    return dataOf(nodeOf(*object, 0), format);
  } catch (const CannotWrite& refusal) {
    if (returnError != nullptr) {
      *returnError = propertyListError(
          kCannotWrite, std::string("Cannot write the property list: ") + refusal.why);
    }
    return nullptr;
  }
}

}  // namespace platform
