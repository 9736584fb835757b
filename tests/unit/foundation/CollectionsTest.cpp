#include <gtest/gtest.h>

#include <limits>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace platform {
namespace {

std::shared_ptr<NSObject> integer(std::int64_t value) {
  return NSNumber::numberWithLongLong(value);
}

std::shared_ptr<NSArray> sample() {
  return NSArray::arrayWithObjects({integer(1), str("abc"), str("a b")});
}

TEST(NSArray, HoldsItsMembersInOrder) {
  const auto array = sample();
  ASSERT_EQ(array->count(), 3U);
  EXPECT_TRUE(array->objectAtIndex(0)->isEqual(integer(1)));
  EXPECT_TRUE(array->objectAtIndex(2)->isEqual(str("a b")));
  EXPECT_THROW((void)array->objectAtIndex(3), NSRangeException);
  EXPECT_THROW((void)array->objectAtIndex(SIZE_MAX), NSRangeException);
}

TEST(NSArray, RefusesNull) {
  EXPECT_THROW((void)NSArray::arrayWithObjects({integer(1), nullptr}), std::invalid_argument);
  EXPECT_THROW((void)NSMutableArray::arrayWithObjects({nullptr}), std::invalid_argument);
  EXPECT_THROW(NSMutableArray::array()->addObject(nullptr), std::invalid_argument);
}

TEST(NSArray, ComparesMembersWhateverItsClass) {
  EXPECT_TRUE(sample()->isEqual(sample()));
  EXPECT_EQ(sample()->hash(), sample()->hash());
  const auto changeable = NSMutableArray::arrayWithObjects({integer(1), str("abc"), str("a b")});
  EXPECT_TRUE(sample()->isEqual(changeable));
  EXPECT_TRUE(changeable->isEqual(sample()));
  EXPECT_EQ(sample()->hash(), changeable->hash());
  changeable->removeObjectAtIndex(2);
  EXPECT_FALSE(sample()->isEqual(changeable));
  EXPECT_FALSE(sample()->isEqual(NSArray::arrayWithObjects({str("abc"), integer(1), str("a b")})));
  EXPECT_FALSE(sample()->isEqual(nullptr));
}

TEST(NSArray, DescribesItselfAsALiteral) {
  EXPECT_EQ(sample()->description(), "(\n    1,\n    abc,\n    \"a b\"\n)");
  EXPECT_EQ(NSArray::arrayWithObjects({})->description(), "(\n)");
  EXPECT_EQ(NSArray::arrayWithObjects({NSArray::arrayWithObjects({integer(1)})})->description(),
            "(\n        (\n        1\n    )\n)");
}

TEST(NSMutableArray, Changes) {
  const auto array = NSMutableArray::array();
  array->addObject(integer(1));
  array->addObject(integer(2));
  array->removeObjectAtIndex(0);
  ASSERT_EQ(array->count(), 1U);
  EXPECT_TRUE(array->objectAtIndex(0)->isEqual(integer(2)));
  EXPECT_THROW(array->removeObjectAtIndex(1), NSRangeException);
}

// Looks at the array that it was in from its destructor.
struct LastLook final : NSObject {
  NSMutableArray& array;
  std::size_t& seen;
  LastLook(NSMutableArray& from, std::size_t& into) : array(from), seen(into) {}
  ~LastLook() override { seen = array.count(); }
};

TEST(NSMutableArray, IsWholeWhileWhatItGaveUpIsDestroyed) {
  const auto array = NSMutableArray::arrayWithObjects({integer(1)});
  std::size_t seen = 99;
  array->addObject(std::make_shared<LastLook>(*array, seen));
  array->removeObjectAtIndex(1);
  EXPECT_EQ(seen, 1U);
}

TEST(Enumeration, GoesFromTheFirstMemberToTheLast) {
  std::string seen;
  sample()->enumerateObjects([&](const auto& object) { seen += object->description() + ";"; });
  EXPECT_EQ(seen, "1;abc;a b;");
}

TEST(Enumeration, ThrowsAfterTheCallThatChangedTheArray) {
  const auto array = NSMutableArray::arrayWithObjects({integer(1), integer(2), integer(3)});
  int calls = 0;
  const auto body = [&](const auto&) {
    if (++calls == 2) array->addObject(integer(4));
  };
  EXPECT_THROW(array->enumerateObjects(body), NSGenericException);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(array->count(), 4U);
}

TEST(Enumeration, ThrowsForAChangeDuringTheLastCallToo) {
  const auto array = NSMutableArray::arrayWithObjects({integer(1)});
  EXPECT_THROW(array->enumerateObjects([&](const auto&) { array->removeObjectAtIndex(0); }),
               NSGenericException);
}

TEST(NSDictionary, FindsWhatItHolds) {
  const auto dictionary = NSDictionary::dictionaryWithEntries(
      {{str("a"), integer(1)}, {integer(7), str("seven")}, {str(""), integer(0)}});
  EXPECT_EQ(dictionary->count(), 3U);
  EXPECT_TRUE(dictionary->objectForKey("a")->isEqual(integer(1)));
  EXPECT_TRUE(dictionary->objectForKey("")->isEqual(integer(0)));
  EXPECT_TRUE(dictionary->objectForKey(*str("a"))->isEqual(integer(1)));
  EXPECT_TRUE(dictionary->objectForKey(NSNumber(NSNumber::Value(7.0)))->isEqual(str("seven")));
  EXPECT_EQ(dictionary->objectForKey("7"), nullptr);
  EXPECT_EQ(dictionary->objectForKey("b"), nullptr);
  EXPECT_EQ(NSDictionary::dictionary()->objectForKey("a"), nullptr);
}

TEST(NSDictionary, FindsEachOfManyKeys) {
  std::vector<NSDictionary::Entry> entries;
  for (std::int64_t i = 0; i < 10000; ++i) entries.emplace_back(integer(i << 16), integer(i));
  const auto dictionary = NSDictionary::dictionaryWithEntries(entries);
  for (std::int64_t i = 0; i < 10000; ++i) {
    ASSERT_TRUE(dictionary->objectForKey(*integer(i << 16))->isEqual(integer(i)));
    ASSERT_EQ(dictionary->objectForKey(*integer((i << 16) + 1)), nullptr);
  }
}

TEST(NSDictionary, OfTwoEqualKeysTheLaterValueWinsInTheEarlierPlace) {
  const auto dictionary = NSDictionary::dictionaryWithEntries(
      {{str("a"), integer(1)}, {str("b"), integer(2)}, {str("a"), integer(3)}});
  ASSERT_EQ(dictionary->count(), 2U);
  EXPECT_TRUE(dictionary->entries()[0].first->isEqual(str("a")));
  EXPECT_TRUE(dictionary->entries()[0].second->isEqual(integer(3)));
}

TEST(NSDictionary, RefusesNull) {
  EXPECT_THROW((void)NSDictionary::dictionaryWithEntries({{nullptr, integer(1)}}),
               std::invalid_argument);
  EXPECT_THROW((void)NSDictionary::dictionaryWithEntries({{str("a"), nullptr}}),
               std::invalid_argument);
}

TEST(NSDictionary, ComparesEntriesWhateverTheirOrder) {
  const auto ab =
      NSDictionary::dictionaryWithEntries({{str("a"), integer(1)}, {str("b"), integer(2)}});
  const auto ba =
      NSDictionary::dictionaryWithEntries({{str("b"), integer(2)}, {str("a"), integer(1)}});
  EXPECT_TRUE(ab->isEqual(ba));
  EXPECT_EQ(ab->hash(), ba->hash());
  EXPECT_FALSE(ab->isEqual(
      NSDictionary::dictionaryWithEntries({{str("a"), integer(1)}, {str("b"), integer(3)}})));
  EXPECT_FALSE(ab->isEqual(
      NSDictionary::dictionaryWithEntries({{str("a"), integer(1)}, {str("c"), integer(2)}})));
  EXPECT_FALSE(ab->isEqual(NSDictionary::dictionary()));
  EXPECT_FALSE(ab->isEqual(nullptr));
}

TEST(NSDictionary, DescribesItselfInTheOrderOfInsertion) {
  const auto inner = NSDictionary::dictionaryWithEntries({{str("x y"), integer(2)}});
  const auto dictionary = NSDictionary::dictionaryWithEntries(
      {{str("b"), integer(1)}, {str("a"), inner}, {str("c"), NSArray::arrayWithObjects({})}});
  EXPECT_EQ(dictionary->description(),
            "{\n    b = 1;\n    a =     {\n        \"x y\" = 2;\n    };\n    c =     (\n    );\n}");
  EXPECT_EQ(NSDictionary::dictionary()->description(), "{\n}");
}

}  // namespace
}  // namespace platform
