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

TEST(ObjectCoder, TheNumberOfObjectsIsBounded) {
  std::vector<Object> members(kMaxObjectsPerFrame - 2, NSNumber::numberWithBool(true));
  const Bytes belowLimit = encode(NSArray::arrayWithObjects(members));
  EXPECT_EQ(decode(belowLimit).verdict, DecodeVerdict::Accepted);
  members.push_back(members.front());
  const Bytes atLimit = encode(NSArray::arrayWithObjects(members));
  EXPECT_EQ(decode(atLimit).verdict, DecodeVerdict::Accepted);
  members.push_back(members.front());
  EXPECT_EQ(encodingFailure(NSArray::arrayWithObjects(members)), EMSGSIZE);
  Bytes beyond(atLimit);
  beyond.insert(beyond.end(), {3, 1});
  beyond[2] = static_cast<std::uint8_t>(kMaxObjectsPerFrame & 0xFF);
  beyond[3] = static_cast<std::uint8_t>((kMaxObjectsPerFrame >> 8U) & 0xFF);
  beyond[4] = static_cast<std::uint8_t>((kMaxObjectsPerFrame >> 16U) & 0xFF);
  EXPECT_EQ(decode(beyond).reason, "more than 262144 objects");
}

TEST(ObjectCoder, ADictionaryHasAtMost4096Entries) {
  const auto dictionary = [](std::int64_t count) {
    std::vector<NSDictionary::Entry> entries;
    for (std::int64_t i = 0; i < count; ++i)
      entries.emplace_back(NSNumber::numberWithLongLong(i), str("v"));
    return NSDictionary::dictionaryWithEntries(std::move(entries));
  };
  EXPECT_EQ(decode(encode(dictionary(4095))).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(decode(encode(dictionary(4096))).verdict, DecodeVerdict::Accepted);
  EXPECT_EQ(encodingFailure(dictionary(4097)), EMSGSIZE);
}

TEST(ObjectCoder, AKeyIsASimpleValue) {
  const auto yes = NSNumber::numberWithBool(true);
  const std::vector<Object> keys = {str("k"), yes, data({1}),
                                    NSDate::dateWithTimeIntervalSinceReferenceDate(1),
                                    NSURL::URLWithString(str("a:b"))};
  for (const Object& key : keys) {
    const Bytes bytes = encode(NSDictionary::dictionaryWithEntries({{key, yes}}));
    EXPECT_EQ(decode(bytes).verdict, DecodeVerdict::Accepted);
  }
  const std::vector<Object> others = {
      NSArray::arrayWithObjects({}),
      NSMutableArray::array(),
      NSDictionary::dictionary(),
      NSError::errorWithDomain_code_userInfo(str("D"), 1, nullptr),
      KQIOObject::objectWithRegistryEntryID_name(1, nullptr),
      KQHIDDeviceElementValue::elementValue(record(1, 1, 1, 1, 1, {}))};
  for (const Object& key : others) {
    EXPECT_EQ(encodingFailure(NSDictionary::dictionaryWithEntries({{key, yes}})), EINVAL);
    Bytes bytes{11, 1};
    const Bytes encoded = encode(key);
    bytes.insert(bytes.end(), encoded.begin(), encoded.end());
    bytes.insert(bytes.end(), {3, 1});
    EXPECT_EQ(decode(bytes).verdict, DecodeVerdict::Refused);
    EXPECT_EQ(decode(bytes).reason, key->isa().name);
  }
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
