// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cerrno>

#include "platform/xpc/InterfaceTable.h"
#include "tests/unit/xpc/CoderSupport.h"

using namespace platform;
using namespace codertest;

namespace {

TagSet tags(std::initializer_list<const NSClass*> classes) {
  TagSet set = 0;
  for (const NSClass* each : classes) set |= tagsOfClass(*each);
  return set;
}

Object nest(std::size_t depth) {
  Object object = NSArray::arrayWithObjects({});
  for (std::size_t i = 1; i < depth; ++i) object = NSArray::arrayWithObjects({object});
  return object;
}

int encodingFailure(const Object& object) {
  try {
    encode(object);
  } catch (const EncodingError& error) {
    return error.code();
  }
  return 0;
}

class NSDataHolder final : public NSObject {
 public:
  static const NSClass& classObject() {
    static const NSClass object{"NSDataHolder", &NSObject::classObject()};
    return object;
  }
  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
};

}  // namespace

TEST(ObjectCoder, WhatDoesNotChangeAndHasOneValueIsOneObject) {
  for (const Bytes& member : {Bytes{1, 0}, {2, 0}, {3, 0}, {3, 1}, {9, 0}, {11, 0}}) {
    const Object first = decode(member).object;
    EXPECT_EQ(first, decode(member).object);
    EXPECT_EQ(encode(first), member);
  }
  const auto changed = platform::objectCast<platform::NSMutableArray>(decode({10, 0}).object);
  const auto other = platform::objectCast<platform::NSMutableArray>(decode({10, 0}).object);
  changed->addObject(platform::str("a"));
  EXPECT_EQ(other->count(), 0U);
}

TEST(ObjectCoder, EveryKindComesBackEqualAndEncodesToTheSameBytes) {
  for (const Object& sample : samples()) {
    const Bytes bytes = encode(sample);
    const Decoded decoded = decode(bytes);
    ASSERT_EQ(decoded.verdict, DecodeVerdict::Accepted)
        << descriptionOf(sample) << ": " << decoded.reason;
    EXPECT_EQ(decoded.left, 0U);
    if (sample == nullptr) {
      EXPECT_EQ(decoded.object, nullptr);
      continue;
    }
    EXPECT_TRUE(sample->isEqual(decoded.object))
        << descriptionOf(sample) << descriptionOf(decoded.object);
    EXPECT_EQ(&sample->isa(), &decoded.object->isa());
    EXPECT_EQ(encode(decoded.object), bytes);
  }
}

TEST(ObjectCoder, EveryTruncationIsMalformed) {
  for (const Object& sample : samples()) {
    const Bytes bytes = encode(sample);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_EQ(decode(cut).verdict, DecodeVerdict::Malformed)
          << descriptionOf(sample) << " at " << length;
    }
  }
}

TEST(ObjectCoder, AFlippedBitIsRefusedOrDecodesToWhatEncodesToItself) {
  std::size_t accepted = 0;
  std::size_t refused = 0;
  for (const Object& sample : samples()) {
    const Bytes bytes = encode(sample);
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
      Bytes flipped(bytes);
      flipped[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
      const Decoded decoded = decode(flipped);
      if (decoded.verdict != DecodeVerdict::Accepted) {
        ++refused;
        continue;
      }
      ++accepted;
      flipped.resize(flipped.size() - decoded.left);
      EXPECT_EQ(encode(decoded.object), flipped) << descriptionOf(sample) << " bit " << bit;
    }
  }
  EXPECT_GT(accepted, 100U);
  EXPECT_GT(refused, 100U);
}

TEST(ObjectCoder, AClassIsAdmittedWithItsSubclassesOnly) {
  const Bytes array = encode(NSArray::arrayWithObjects({}));
  const Bytes mutableArray = encode(NSMutableArray::array());
  const TagSet arrays = tags({&NSArray::classObject()});
  const TagSet mutableArrays = tags({&NSMutableArray::classObject()});
  EXPECT_EQ(decode(array, arrays, arrays).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(decode(mutableArray, arrays, arrays).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(decode(mutableArray, mutableArrays, mutableArrays).verdict, DecodeVerdict::Accepted);
  const Decoded refused = decode(array, mutableArrays, mutableArrays);
  EXPECT_EQ(refused.verdict, DecodeVerdict::Refused);
  EXPECT_EQ(refused.reason, "NSArray");
  EXPECT_EQ(decode(array, tags({&NSObject::classObject()}), 0).verdict, DecodeVerdict::Accepted);
}

TEST(ObjectCoder, NilNeedsNoAdmission) {
  EXPECT_EQ(decode(encode(nullptr), 0, 0).verdict, DecodeVerdict::Accepted);
}

TEST(ObjectCoder, AnUnknownTagIsRefusedWhereverItStands) {
  EXPECT_EQ(decode({16}).verdict, DecodeVerdict::Refused);
  EXPECT_EQ(decode({255}).verdict, DecodeVerdict::Refused);
  EXPECT_EQ(decode({9, 1, 200}).verdict, DecodeVerdict::Refused);
}

TEST(ObjectCoder, TheSetHoldsForEverythingInside) {
  const TagSet set =
      tags({&NSArray::classObject(), &NSDictionary::classObject(), &NSString::classObject()});
  const auto number = NSNumber::numberWithBool(true);
  const std::vector<Object> refused = {
      NSArray::arrayWithObjects({str("a"), number}),
      NSArray::arrayWithObjects({NSArray::arrayWithObjects({number})}),
      NSDictionary::dictionaryWithEntries({{number, str("v")}}),
      NSDictionary::dictionaryWithEntries({{str("k"), number}})};
  for (const Object& each : refused) {
    const Decoded decoded = decode(encode(each), set, set);
    EXPECT_EQ(decoded.verdict, DecodeVerdict::Refused);
    EXPECT_EQ(decoded.reason, "NSNumber");
    EXPECT_EQ(decoded.object, nullptr);
  }
  EXPECT_EQ(decode(encode(NSArray::arrayWithObjects({str("a")})), set, set).verdict,
            DecodeVerdict::Accepted);
}

TEST(ObjectCoder, AnErrorsOwnPartsNeedNoAdmissionButWhatTheUserInfoHoldsDoes) {
  const TagSet errors = tags({&NSError::classObject()});
  const auto plain = NSError::errorWithDomain_code_userInfo(str("D"), 1, nullptr);
  const auto empty =
      NSError::errorWithDomain_code_userInfo(str("D"), 1, NSDictionary::dictionary());
  const auto filled = NSError::errorWithDomain_code_userInfo(
      str("D"), 1,
      NSDictionary::dictionaryWithEntries({{str("k"), NSNumber::numberWithBool(true)}}));
  EXPECT_EQ(decode(encode(plain), errors, errors).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(decode(encode(empty), errors, errors).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(decode(encode(filled), errors, errors).reason, "NSString");
  const TagSet withStrings = errors | tags({&NSString::classObject()});
  EXPECT_EQ(decode(encode(filled), errors, withStrings).reason, "NSNumber");
  const TagSet withBoth = withStrings | tags({&NSNumber::classObject()});
  EXPECT_EQ(decode(encode(filled), errors, withBoth).verdict, DecodeVerdict::Accepted);
}

TEST(ObjectCoder, AnElementValuesBytesNeedNoAdmission) {
  const std::uint8_t field[] = {1};
  const auto list = elementValueArray(std::vector{record(1, 1, 1, 1, 1, field)});
  const TagSet set =
      tags({&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()});
  EXPECT_EQ(decode(encode(list), set, set).verdict, DecodeVerdict::Accepted);
  const Decoded refused = decode(encode(list), set, tags({&NSMutableArray::classObject()}));
  EXPECT_EQ(refused.reason, "KQHIDDeviceElementValue");
}

TEST(ObjectCoder, ElementValuesOfAListLieInOneBlock) {
  const std::uint8_t field[] = {0xAA, 0xBB};
  const Decoded decoded = decode(encode(
      elementValueArray(std::vector{record(1, 2, 3, 4, 5, field), record(1, 2, 3, 5, 6, field)})));
  const auto array = objectCast<NSArray>(decoded.object);
  ASSERT_EQ(array->count(), 2U);
  const auto second = objectCast<KQHIDDeviceElementValue>(array->objectAtIndex(1));
  EXPECT_FALSE(second.owner_before(array) || array.owner_before(second));
  EXPECT_EQ(second->hidCookie(), 5U);
  EXPECT_EQ(second->bytesValue()->length(), 2U);
}

TEST(ObjectCoder, SixtyFourLevelsAreTakenAndNoMore) {
  EXPECT_EQ(decode(encode(nest(63))).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(decode(encode(nest(64))).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(encodingFailure(nest(65)), EINVAL);
  Bytes tooDeep;
  for (int i = 0; i < 64; ++i) tooDeep.insert(tooDeep.end(), {9, 1});
  tooDeep.insert(tooDeep.end(), {9, 0});
  EXPECT_EQ(decode(tooDeep).reason, "collections nest more than 64 deep");
}

TEST(ObjectCoder, ACollectionThatHoldsItselfIsRefusedByTheEncoder) {
  const auto array = NSMutableArray::array();
  array->addObject(array);
  EXPECT_EQ(encodingFailure(array), EINVAL);
  array->removeObjectAtIndex(0);
}

TEST(ObjectCoder, AFrameIsFilledToItsLastByte) {
  constexpr std::size_t kAroundTheBlock = 6;  // tag and long size
  for (const std::size_t body : {kMaxFrameBody - 1, kMaxFrameBody, kMaxFrameBody + 1}) {
    WireWriter writer;
    writer.beginFrame(FrameKind::Message, 0);
    platform::XPCValues values;
    values.append(platform::XPCValue(
        Object(NSData::dataWithLength(body - kAroundTheBlock, [](std::span<std::uint8_t>) {}))));
    int failure = 0;
    try {
      encodeValues(writer, values);
    } catch (const EncodingError& error) {
      failure = error.code();
    }
    EXPECT_EQ(failure, body <= kMaxFrameBody ? 0 : EMSGSIZE) << body;
  }
}

TEST(ObjectCoder, ADictionaryFillsAFrameToItsLastByte) {
  std::vector<NSDictionary::Entry> entries;
  for (std::int64_t i = 0; i < 20'000; ++i)
    entries.emplace_back(NSNumber::numberWithLongLong(i), NSNumber::numberWithBool(true));
  const auto with = [&](std::size_t bytes) {
    auto all = entries;
    all.emplace_back(str("k"), NSData::dataWithLength(bytes, [](std::span<std::uint8_t>) {}));
    return NSDictionary::dictionaryWithEntries(std::move(all));
  };
  constexpr std::size_t kEnough = 10'000'000;
  const std::size_t around = encode(with(kEnough)).size() - kEnough;
  for (const std::size_t body : {kMaxFrameBody - 1, kMaxFrameBody, kMaxFrameBody + 1}) {
    const Object dictionary = with(body - around);
    platform::XPCValues values;
    values.append(platform::XPCValue(dictionary));
    WireWriter writer;
    writer.beginFrame(FrameKind::Message, 0);
    if (body > kMaxFrameBody) {
      EXPECT_THROW(encodeValues(writer, values), EncodingError);
      continue;
    }
    encodeValues(writer, values);
    ASSERT_EQ(writer.frameSize(), kFrameHeaderSize + body);
    const auto bytes = writer.bytes().subspan(kFrameHeaderSize);
    const Decoded decoded = decode({bytes.begin(), bytes.end()});
    ASSERT_EQ(decoded.verdict, DecodeVerdict::Accepted) << decoded.reason;
    EXPECT_TRUE(dictionary->isEqual(decoded.object));
  }
}

TEST(ObjectCoder, AnyObjectThatIsAdmittedMayBeAKey) {
  const auto yes = NSNumber::numberWithBool(true);
  for (const Object& key : samples()) {
    if (key == nullptr) continue;
    const auto dictionary = NSDictionary::dictionaryWithEntries({{key, yes}});
    const Decoded decoded = decode(encode(dictionary));
    ASSERT_EQ(decoded.verdict, DecodeVerdict::Accepted) << descriptionOf(key);
    EXPECT_TRUE(dictionary->isEqual(decoded.object)) << descriptionOf(key);
    const TagSet others = ~tagsOfClass(key->isa());
    const Decoded refused = decode(encode(dictionary), kEverything, others);
    EXPECT_EQ(refused.verdict, DecodeVerdict::Refused) << descriptionOf(key);
    EXPECT_EQ(refused.reason, key->isa().name);
  }
}

TEST(ObjectCoder, KeysNestLikeValues) {
  const auto keys = [](std::size_t depth) {
    auto dictionary = NSDictionary::dictionary();
    for (std::size_t i = 1; i < depth; ++i)
      dictionary = NSDictionary::dictionaryWithEntries({{dictionary, str("v")}});
    return dictionary;
  };
  for (const std::size_t depth : {63U, 64U}) {
    const Decoded decoded = decode(encode(keys(depth)));
    ASSERT_EQ(decoded.verdict, DecodeVerdict::Accepted) << depth;
    EXPECT_TRUE(keys(depth)->isEqual(decoded.object)) << depth;
  }
  EXPECT_EQ(encodingFailure(keys(65)), EINVAL);
  Bytes tooDeep;
  for (int i = 0; i < 64; ++i) tooDeep.insert(tooDeep.end(), {11, 1});
  tooDeep.insert(tooDeep.end(), {11, 0});
  for (int i = 0; i < 64; ++i) tooDeep.insert(tooDeep.end(), {3, 1});
  EXPECT_EQ(decode(tooDeep).reason, "collections nest more than 64 deep");
}

TEST(ObjectCoder, EntriesTravelInTheOrderOfTheirKeysBytes) {
  const auto number = [](std::int64_t value) { return NSNumber::numberWithLongLong(value); };
  const auto inner = [&](bool turned) -> Object {
    const NSDictionary::Entry a{str("a"), number(1)};
    const NSDictionary::Entry b{data({1}), number(2)};
    return NSDictionary::dictionaryWithEntries(turned ? std::vector{b, a} : std::vector{a, b});
  };
  std::vector<NSDictionary::Entry> entries = {{inner(false), str("dictionary")},
                                              {number(1), inner(false)},
                                              {number(256), str("low first byte")},
                                              {str("ab"), number(3)},
                                              {str("b"), number(4)}};
  const Bytes bytes = encode(NSDictionary::dictionaryWithEntries(entries));
  std::reverse(entries.begin(), entries.end());
  entries.back().first = inner(true);
  entries[3].second = inner(true);
  EXPECT_EQ(encode(NSDictionary::dictionaryWithEntries(entries)), bytes);
  const auto keys = objectCast<NSDictionary>(decode(bytes).object)->entries();
  ASSERT_EQ(keys.size(), 5U);
  EXPECT_TRUE(keys[0].first->isEqual(str("b")));
  EXPECT_TRUE(keys[1].first->isEqual(str("ab")));
  EXPECT_TRUE(keys[2].first->isEqual(number(256)));
  EXPECT_TRUE(keys[3].first->isEqual(number(1)));
  EXPECT_TRUE(keys[4].first->isEqual(inner(true)));
}

TEST(ObjectCoder, KeysThatDoNotAscendAreMalformed) {
  constexpr std::string_view kOrder = "dictionary keys not in ascending order";
  constexpr std::string_view kTwice = "a duplicate key in a dictionary";
  EXPECT_EQ(decode({11, 2, 2, 1, 'b', 3, 1, 2, 1, 'a', 3, 1}).reason, kOrder);
  EXPECT_EQ(decode({11, 2, 2, 1, 'a', 3, 1, 2, 1, 'a', 3, 1}).reason, kTwice);
  EXPECT_EQ(decode({11, 3, 2, 1, 'a', 3, 1, 2, 1, 'b', 3, 1, 2, 1, 'a', 3, 1}).reason, kOrder);
  // Nothing after it is examined, not even the value.
  EXPECT_EQ(decode({11, 2, 2, 1, 'b', 3, 1, 2, 1, 'a', 99, 9}).reason, kOrder);
  // Equal, although their bytes differ.
  EXPECT_EQ(decode({11, 2, 3, 0, 3, 1, 4, 0, 0, 0, 0, 0, 0, 0, 0, 3, 1}).reason, kTwice);
  EXPECT_EQ(decode({11, 2, 9, 1, 3, 0, 3, 1, 10, 1, 3, 0, 3, 1}).reason, kTwice);
}

TEST(ObjectCoder, KeysThatHaveBecomeTheSameAreNotSent) {
  const auto one = NSMutableArray::arrayWithObjects({str("a")});
  const auto other = NSMutableArray::array();
  const auto dictionary = NSDictionary::dictionaryWithEntries({{one, str("1")}, {other, str("2")}});
  other->addObject(str("a"));
  EXPECT_EQ(encodingFailure(dictionary), EINVAL);
}

TEST(ObjectCoder, ACountIsComparedWithTheBytesThatAreLeftBeforeAnythingIsReserved) {
  EXPECT_EQ(decode({9, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1}).reason, "more members than bytes");
  EXPECT_EQ(decode({11, 2, 3, 1, 3}).reason, "more members than bytes");
  Bytes list{15, 2};
  list.resize(2 + 2 * 29 - 1);
  EXPECT_EQ(decode(list).reason, "more members than bytes");
}

TEST(ObjectCoder, WhatHasNoEncodingIsAnError) {
  EXPECT_EQ(encodingFailure(std::make_shared<NSDataHolder>()), EINVAL);
  EXPECT_EQ(encodingFailure(NSArray::arrayWithObjects({std::make_shared<NSDataHolder>()})), EINVAL);
}

TEST(ObjectCoder, AnObjectLargerThanAFrameIsAnErrorBeforeItIsCopied) {
  const auto big = NSData::dataWithLength(kMaxFrameBody + 1, [](std::span<std::uint8_t>) {});
  EXPECT_EQ(encodingFailure(big), EMSGSIZE);
}
