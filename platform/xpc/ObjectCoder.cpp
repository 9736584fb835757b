// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/ObjectCoder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <compare>
#include <cstring>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"

namespace platform::xpc {
namespace {

using Bytes = std::span<const std::uint8_t>;

std::strong_ordering compareBytes(Bytes a, Bytes b) {
  const std::size_t common = std::min(a.size(), b.size());
  const int order = common == 0 ? 0 : std::memcmp(a.data(), b.data(), common);
  return order != 0 ? order <=> 0 : a.size() <=> b.size();
}

/// The class of a tag; null for nil.
const NSClass* classOfTag(ObjectTag tag) {
  switch (tag) {
    case ObjectTag::Nil:
      return nullptr;
    case ObjectTag::Data:
      return &NSData::classObject();
    case ObjectTag::String:
      return &NSString::classObject();
    case ObjectTag::Boolean:
    case ObjectTag::Signed:
    case ObjectTag::Unsigned:
    case ObjectTag::Double:
      return &NSNumber::classObject();
    case ObjectTag::Date:
      return &NSDate::classObject();
    case ObjectTag::URL:
      return &NSURL::classObject();
    case ObjectTag::Array:
      return &NSArray::classObject();
    case ObjectTag::MutableArray:
    case ObjectTag::ElementValueList:
      return &NSMutableArray::classObject();
    case ObjectTag::Dictionary:
      return &NSDictionary::classObject();
    case ObjectTag::Error:
      return &NSError::classObject();
    case ObjectTag::ElementValue:
      return &KQHIDDeviceElementValue::classObject();
    case ObjectTag::IOObject:
      return &KQIOObject::classObject();
  }
  return nullptr;
}

// -------------------------------------------------------------------------------------------------
// Encoding

class Encoder {
 public:
  explicit Encoder(WireWriter& writer) : writer_(writer) {}

  void object(const NSObject* object) {
    if (object == nullptr) return tag(ObjectTag::Nil);
    checkSize();
    const NSClass& c = object->isa();
    if (&c == &NSData::classObject()) return data(static_cast<const NSData&>(*object));
    encodeByClass(c, *object);
  }

 private:
  /// A subclass is sent as its nearest ancestor that has an encoding.
  void encodeByClass(const NSClass& c, const NSObject& o) {
    for (const NSClass* known = &c; known != nullptr; known = known->superclass) {
      if (known == &NSString::classObject())
        return text(ObjectTag::String, static_cast<const NSString&>(o));
      if (known == &NSNumber::classObject()) return number(static_cast<const NSNumber&>(o));
      if (known == &NSMutableArray::classObject())
        return mutableArray(static_cast<const NSArray&>(o));
      if (known == &NSArray::classObject())
        return array(ObjectTag::Array, static_cast<const NSArray&>(o));
      if (known == &NSDictionary::classObject())
        return dictionary(static_cast<const NSDictionary&>(o));
      if (known == &NSError::classObject()) return error(static_cast<const NSError&>(o));
      if (known == &NSDate::classObject()) return date(static_cast<const NSDate&>(o));
      if (known == &NSURL::classObject()) return url(static_cast<const NSURL&>(o));
      if (known == &KQHIDDeviceElementValue::classObject()) return elementValue(o);
      if (known == &KQIOObject::classObject()) return ioObject(static_cast<const KQIOObject&>(o));
    }
    throw EncodingError(EINVAL, "an object of class " + std::string(c.name) + " has no encoding");
  }

  void tag(ObjectTag value) { writer_.u8(static_cast<std::uint8_t>(value)); }

  void data(const NSData& value) {
    tag(ObjectTag::Data);
    block(value.span());
  }
  void block(std::span<const std::uint8_t> bytes) {
    if (bytes.size() > kMaxFrameBody) throwTooLarge();
    writer_.block(bytes);
  }
  void text(ObjectTag t, const NSString& value) {
    tag(t);
    const std::string& utf8 = value.UTF8String();
    block({reinterpret_cast<const std::uint8_t*>(utf8.data()), utf8.size()});
  }
  void number(const NSNumber& number) {
    const auto& value = number.value();
    if (const auto* boolean = std::get_if<bool>(&value)) {
      tag(ObjectTag::Boolean);
      writer_.u8(*boolean ? 1 : 0);
    } else if (const auto* signedValue = std::get_if<std::int64_t>(&value)) {
      tag(ObjectTag::Signed);
      writer_.u64(static_cast<std::uint64_t>(*signedValue));
    } else if (const auto* unsignedValue = std::get_if<std::uint64_t>(&value)) {
      tag(ObjectTag::Unsigned);
      writer_.u64(*unsignedValue);
    } else {
      tag(ObjectTag::Double);
      writer_.number(std::get<double>(value));
    }
  }
  void date(const NSDate& value) {
    tag(ObjectTag::Date);
    writer_.number(value.timeIntervalSinceReferenceDate());
  }
  void url(const NSURL& value) {
    if (!value.absoluteString() || value.absoluteString()->UTF8String().empty()) {
      throw EncodingError(EINVAL, "an empty URL has no encoding");
    }
    text(ObjectTag::URL, *value.absoluteString());
  }
  void elementValue(const NSObject& value) {
    tag(ObjectTag::ElementValue);
    record(static_cast<const KQHIDDeviceElementValue&>(value).record());
  }
  void record(const HIDElementValueRecord& value) {
    writer_.u32(value.reportID);
    writer_.u32(value.usagePage);
    writer_.u32(value.usage);
    writer_.u64(value.cookie);
    writer_.u64(static_cast<std::uint64_t>(value.integerValue));
    block(value.bytes);
  }
  void ioObject(const KQIOObject& value) {
    tag(ObjectTag::IOObject);
    writer_.u64(value.registryEntryID());
    optionalText(value.name());
  }
  void optionalText(const std::shared_ptr<NSString>& value) {
    if (value == nullptr) return tag(ObjectTag::Nil);
    text(ObjectTag::String, *value);
  }

  /// An array of element values only has a form of its own, without a tag per member.
  void mutableArray(const NSArray& value) {
    const std::size_t count = value.count();
    std::vector<std::shared_ptr<NSObject>> members;
    members.reserve(count);
    bool onlyElementValues = count > 0;
    for (std::size_t i = 0; i < count; ++i) {
      members.push_back(value.objectAtIndex(i));
      onlyElementValues = onlyElementValues &&
                          members.back()->isKindOfClass(KQHIDDeviceElementValue::classObject());
    }
    if (!onlyElementValues) return sequence(ObjectTag::MutableArray, members);
    enter();
    tag(ObjectTag::ElementValueList);
    writer_.size(count);
    for (const auto& member : members) {
      checkSize();
      record(static_cast<const KQHIDDeviceElementValue&>(*member).record());
    }
    leave();
  }
  void array(ObjectTag t, const NSArray& value) {
    std::vector<std::shared_ptr<NSObject>> members;
    const std::size_t count = value.count();
    members.reserve(count);
    for (std::size_t i = 0; i < count; ++i) members.push_back(value.objectAtIndex(i));
    sequence(t, members);
  }
  void sequence(ObjectTag t, const std::vector<std::shared_ptr<NSObject>>& members) {
    enter();
    tag(t);
    writer_.size(members.size());
    for (const auto& member : members) object(member.get());
    leave();
  }
  /// The position of an entry in the writer.
  struct WrittenEntry {
    std::size_t key = 0;
    std::size_t value = 0;
    std::size_t end = 0;
  };
  void dictionary(const NSDictionary& value) {
    enter();
    tag(ObjectTag::Dictionary);
    writer_.size(value.count());
    std::vector<WrittenEntry> written;
    written.reserve(value.count());
    for (const auto& [key, object_] : value.entries()) {
      WrittenEntry& entry = written.emplace_back();
      entry.key = writer_.size();
      object(key.get());
      entry.value = writer_.size();
      object(object_.get());
      entry.end = writer_.size();
    }
    sortByKey(written);
    leave();
  }
  void sortByKey(std::vector<WrittenEntry>& written) {
    const auto order = [bytes = writer_.bytes()](const WrittenEntry& a, const WrittenEntry& b) {
      return compareBytes(bytes.subspan(a.key, a.value - a.key),
                          bytes.subspan(b.key, b.value - b.key));
    };
    const auto before = [&](const auto& a, const auto& b) { return order(a, b) < 0; };
    const auto notBefore = [&](const auto& a, const auto& b) { return order(a, b) >= 0; };
    if (std::adjacent_find(written.begin(), written.end(), notBefore) == written.end()) return;
    const std::size_t start = written.front().key;
    std::sort(written.begin(), written.end(), before);
    if (std::adjacent_find(written.begin(), written.end(), notBefore) != written.end())
      throw EncodingError(EINVAL, "two keys of a dictionary have become equal");
    rewrite(start, written);
  }
  /// Rewrites the entries, which begin at `start` in another order, in the order of `written`.
  void rewrite(std::size_t start, const std::vector<WrittenEntry>& written) {
    const Bytes region = writer_.bytes().subspan(start);
    const std::vector<std::uint8_t> copy(region.begin(), region.end());
    writer_.truncate(start);
    for (const WrittenEntry& each : written)
      writer_.raw(Bytes(copy).subspan(each.key - start, each.end - each.key));
  }
  void error(const NSError& value) {
    enter();
    tag(ObjectTag::Error);
    writer_.u64(static_cast<std::uint64_t>(value.code()));
    optionalText(value.domain());
    object(value.userInfo().get());
    leave();
  }

  void enter() {
    if (++depth_ > kMaxObjectDepth)
      throw EncodingError(EINVAL, "collections nest more than 64 deep");
  }
  void leave() { --depth_; }
  void checkSize() const {
    if (writer_.frameSize() > kMaxFrameSize) throwTooLarge();
  }
  [[noreturn]] static void throwTooLarge() {
    throw EncodingError(EMSGSIZE, "a message is larger than 16 MiB");
  }

  WireWriter& writer_;
  std::size_t depth_ = 0;
};

// -------------------------------------------------------------------------------------------------
// Decoding

/// Immutable objects that take two bytes on the wire. They are shared, since a new one for each
/// occurrence would let a peer claim many times the memory that it sends. Never destroyed, because
/// a connection's thread may be decoding while the process exits.
struct SharedObjects {
  using Object = const std::shared_ptr<NSObject>;
  static const SharedObjects& instance() {
    static const SharedObjects& objects = *new SharedObjects;
    return objects;
  }

  Object no = NSNumber::numberWithBool(false);
  Object yes = NSNumber::numberWithBool(true);
  Object emptyData = NSData::dataWithBytes({});
  Object emptyString = NSString::stringWithUTF8({});
  Object emptyArray = NSArray::arrayWithObjects({});
  Object emptyDictionary = NSDictionary::dictionary();
};

class Decoder {
 public:
  Decoder(WireReader& reader, TagSet inside) : reader_(reader), inside_(inside) {}

  DecodeResult outermost(TagSet admitted) {
    std::shared_ptr<NSObject> object;
    if (value(admitted, Nullable::Yes, object))
      return {DecodeVerdict::Accepted, std::move(object), {}};
    return {verdict_, nullptr, reason_};
  }

 private:
  enum class Nullable { No, Yes };
  using Object = std::shared_ptr<NSObject>;
  /// Room for this many members is reserved at once; more only as they arrive, since nested
  /// collections can each claim all of the remaining bytes.
  static constexpr std::size_t kTrustedCount = 256;

  /// Doubles the room when it is used up, but never beyond `count`.
  template <class T>
  static void makeRoom(std::vector<T>& members, std::size_t count) {
    if (members.size() < members.capacity()) return;
    members.reserve(std::min(count, std::max(kTrustedCount, 2 * members.size())));
  }

  /// Each of these returns whether it succeeded; a failure has set verdict_ and reason_.
  bool value(TagSet admitted, Nullable nullable, Object& result) {
    const std::uint8_t tag = reader_.u8();
    if (reader_.failed()) return truncated();
    if (tag >= kObjectTagCount) return refused("an unknown class");
    const auto known = static_cast<ObjectTag>(tag);
    if (known == ObjectTag::Nil)
      return nullable == Nullable::Yes || malformed("nil inside a collection");
    if ((admitted & tagBit(known)) == 0) return refused(classOfTag(known)->name);
    return body(known, result);
  }

  bool body(ObjectTag tag, Object& result) {
    switch (tag) {
      case ObjectTag::Data:
        return data(result);
      case ObjectTag::String:
        return string(result);
      case ObjectTag::Boolean:
        return boolean(result);
      case ObjectTag::Signed:
        return fixed(result,
                     NSNumber::numberWithLongLong(static_cast<std::int64_t>(reader_.u64())));
      case ObjectTag::Unsigned:
        return fixed(result, NSNumber::numberWithUnsignedLongLong(reader_.u64()));
      case ObjectTag::Double:
        return fixed(result, NSNumber::numberWithDouble(reader_.number()));
      case ObjectTag::Date:
        return fixed(result, NSDate::dateWithTimeIntervalSinceReferenceDate(reader_.number()));
      case ObjectTag::URL:
        return url(result);
      case ObjectTag::ElementValue:
        return elementValue(result);
      case ObjectTag::IOObject:
        return ioObject(result);
      case ObjectTag::Array:
      case ObjectTag::MutableArray:
      case ObjectTag::Dictionary:
      case ObjectTag::Error:
      case ObjectTag::ElementValueList:
        return collection(tag, result);
      case ObjectTag::Nil:
        break;
    }
    return malformed("nil");
  }

  bool collection(ObjectTag tag, Object& result) {
    if (depth_ == kMaxObjectDepth) return malformed("collections nest more than 64 deep");
    ++depth_;
    bool done = false;
    if (tag == ObjectTag::Dictionary) {
      done = dictionary(result);
    } else if (tag == ObjectTag::Error) {
      done = error(result);
    } else if (tag == ObjectTag::ElementValueList) {
      done = elementValueList(result);
    } else {
      done = array(tag, result);
    }
    --depth_;
    return done;
  }

  bool data(Object& result) {
    const auto bytes = reader_.block();
    if (reader_.failed()) return truncated();
    result = bytes.empty() ? shared_.emptyData : NSData::dataWithBytes(bytes);
    return true;
  }
  bool text(std::shared_ptr<NSString>& result) {
    const auto bytes = reader_.block();
    if (reader_.failed()) return truncated();
    result = NSString::stringWithUTF8({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    return result != nullptr || malformed("text that is not UTF-8");
  }
  bool string(Object& result) {
    std::shared_ptr<NSString> value;
    if (!text(value)) return false;
    result = value->UTF8String().empty() ? shared_.emptyString : std::move(value);
    return true;
  }
  bool boolean(Object& result) {
    const std::uint8_t value = reader_.u8();
    if (value > 1) return malformed("a boolean other than 0 or 1");
    return fixed(result, value == 1 ? shared_.yes : shared_.no);
  }
  bool fixed(Object& result, Object value) {
    if (reader_.failed()) return truncated();
    result = std::move(value);
    return true;
  }
  bool url(Object& result) {
    std::shared_ptr<NSString> value;
    if (!text(value)) return false;
    result = NSURL::URLWithString(value);
    return result != nullptr || malformed("an empty URL");
  }

  HIDElementValueRecord record() {
    HIDElementValueRecord value;
    value.reportID = reader_.u32();
    value.usagePage = reader_.u32();
    value.usage = reader_.u32();
    value.cookie = reader_.u64();
    value.integerValue = static_cast<std::int64_t>(reader_.u64());
    value.bytes = reader_.block();
    return value;
  }
  bool elementValue(Object& result) {
    const HIDElementValueRecord value = record();
    if (reader_.failed()) return truncated();
    result = KQHIDDeviceElementValue::elementValue(value);
    return true;
  }
  bool elementValueList(Object& result) {
    if ((inside_ & tagBit(ObjectTag::ElementValue)) == 0) return refused("KQHIDDeviceElementValue");
    std::size_t count = 0;
    if (!memberCount(kElementValueMinimum, count)) return false;
    if (count == 0) return malformed("an empty element value list");
    std::array<HIDElementValueRecord, 32> few;
    std::vector<HIDElementValueRecord> many(count > few.size() ? count : 0);
    const std::span<HIDElementValueRecord> records(count > few.size() ? many.data() : few.data(),
                                                   count);
    for (HIDElementValueRecord& each : records) each = record();
    if (reader_.failed()) return truncated();
    result = elementValueArray(records);
    return true;
  }
  bool ioObject(Object& result) {
    const std::uint64_t entryID = reader_.u64();
    std::shared_ptr<NSString> name;
    if (!optionalText(name)) return false;
    result = KQIOObject::objectWithRegistryEntryID_name(entryID, std::move(name));
    return true;
  }
  /// Part of the record that contains it, so admitted together with it.
  bool optionalText(std::shared_ptr<NSString>& result) {
    const std::uint8_t tag = reader_.u8();
    if (reader_.failed()) return truncated();
    if (tag == static_cast<std::uint8_t>(ObjectTag::Nil)) return true;
    if (tag != static_cast<std::uint8_t>(ObjectTag::String))
      return malformed("neither nil nor a string");
    return text(result);
  }

  bool array(ObjectTag tag, Object& result) {
    std::size_t count = 0;
    if (!memberCount(1, count)) return false;
    std::vector<Object> members;
    bool onlyElementValues = count > 0;
    for (std::size_t i = 0; i < count; ++i) {
      Object member;
      if (!value(inside_, Nullable::No, member)) return false;
      onlyElementValues =
          onlyElementValues && &member->isa() == &KQHIDDeviceElementValue::classObject();
      makeRoom(members, count);
      members.push_back(std::move(member));
    }
    if (tag == ObjectTag::Array) {
      result = count == 0 ? shared_.emptyArray : NSArray::arrayWithObjects(std::move(members));
      return true;
    }
    if (onlyElementValues) return malformed("element values outside an element value list");
    result = NSMutableArray::arrayWithObjects(std::move(members));
    return true;
  }

  /// While keys arrive in ascending order no search for duplicates is needed; keys that are equal
  /// although their bytes differ are found when the dictionary is created.
  bool dictionary(Object& result) {
    std::size_t count = 0;
    if (!memberCount(2, count)) return false;
    if (count == 0) {
      result = shared_.emptyDictionary;
      return true;
    }
    std::vector<NSDictionary::Entry> entries;
    Bytes previous;
    for (std::size_t i = 0; i < count; ++i) {
      makeRoom(entries, count);
      auto& [key, object] = entries.emplace_back();
      const std::uint8_t* const start = reader_.position();
      if (!value(inside_, Nullable::No, key)) return false;
      const Bytes bytes(start, reader_.position());
      if (!inOrder(previous, bytes)) return false;
      previous = bytes;
      if (!value(inside_, Nullable::No, object)) return false;
    }
    const auto dictionary = NSDictionary::dictionaryWithEntries(std::move(entries));
    if (dictionary->count() != count) return keyTwice();
    result = dictionary;
    return true;
  }
  bool inOrder(Bytes previous, Bytes key) {
    const auto order = compareBytes(previous, key);
    if (order == 0) return keyTwice();
    return order < 0 || malformed("dictionary keys not in ascending order");
  }
  bool keyTwice() { return malformed("a duplicate key in a dictionary"); }

  bool error(Object& result) {
    const auto code = static_cast<std::int64_t>(reader_.u64());
    std::shared_ptr<NSString> domain;
    if (!optionalText(domain)) return false;
    Object userInfo;
    if (!value(inside_ | tagBit(ObjectTag::Dictionary), Nullable::Yes, userInfo)) return false;
    if (userInfo != nullptr && &userInfo->isa() != &NSDictionary::classObject()) {
      return malformed("a user info that is not a dictionary");
    }
    result = NSError::errorWithDomain_code_userInfo(
        domain, code, std::static_pointer_cast<NSDictionary>(userInfo));
    return true;
  }

  /// Reads a count and checks that the remaining bytes, at `minimum` a member, can hold it.
  bool memberCount(std::size_t minimum, std::size_t& count) {
    count = reader_.size();
    if (reader_.failed()) return truncated();
    return count <= reader_.remaining() / minimum || malformed("more members than bytes");
  }

  bool truncated() { return malformed("truncated, or a size below 255 in its long form"); }
  bool malformed(std::string_view reason) { return fail(DecodeVerdict::Malformed, reason); }
  bool refused(std::string_view className) { return fail(DecodeVerdict::Refused, className); }
  bool fail(DecodeVerdict verdict, std::string_view reason) {
    verdict_ = verdict;
    reason_ = reason;
    return false;
  }

  WireReader& reader_;
  const TagSet inside_;
  const SharedObjects& shared_ = SharedObjects::instance();
  std::size_t depth_ = 0;
  DecodeVerdict verdict_ = DecodeVerdict::Accepted;
  std::string_view reason_;
};

}  // namespace

TagSet tagsOfClass(const NSClass& admitted) {
  TagSet tags = 0;
  for (std::uint8_t tag = 1; tag < kObjectTagCount; ++tag) {
    const NSClass* const c = classOfTag(static_cast<ObjectTag>(tag));
    if (c->isSubclassOfClass(admitted)) tags |= tagBit(static_cast<ObjectTag>(tag));
  }
  return tags;
}

void encodeObject(WireWriter& writer, const NSObject* object) {
  Encoder(writer).object(object);
}

DecodeResult decodeObject(WireReader& reader, TagSet outermost, TagSet inside) {
  return Decoder(reader, inside).outermost(outermost);
}

}  // namespace platform::xpc
