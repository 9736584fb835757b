// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <functional>
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

/// The error for an index out of range.
std::string complaint(const std::function<void()>& access) {
  try {
    access();
  } catch (const NSRangeException& outside) {
    return outside.what();
  }
  return "nothing";
}

TEST(NSArray, SaysWhichIndexIsBeyondIt) {
  const auto changeable = NSMutableArray::arrayWithObjects({integer(1)});
  EXPECT_EQ(complaint([] { (void)sample()->objectAtIndex(3); }), "index 3 beyond an array of 3");
  EXPECT_EQ(complaint([&] { (void)changeable->objectAtIndex(5); }), "index 5 beyond an array of 1");
  EXPECT_EQ(complaint([&] { changeable->removeObjectAtIndex(1); }), "index 1 beyond an array of 1");
}

TEST(NSArray, IsOrderedByCountAndThenByItsFirstDifference) {
  const auto of = [](std::vector<std::shared_ptr<NSObject>> objects) {
    return NSArray::arrayWithObjects(std::move(objects));
  };
  const auto isBefore = [](const auto& a, const auto& b) {
    return NSObject::compare(a.get(), b.get()) < 0 && NSObject::compare(b.get(), a.get()) > 0;
  };
  EXPECT_TRUE(isBefore(of({integer(9)}), of({integer(1), integer(1)})));
  EXPECT_TRUE(isBefore(of({integer(1), integer(9)}), of({integer(2), integer(1)})));
  EXPECT_TRUE(isBefore(of({integer(1), integer(1)}), of({integer(1), integer(2)})));
}

TEST(NSArray, RefusesNull) {
  EXPECT_THROW((void)NSArray::arrayWithObjects({integer(1), nullptr}), std::invalid_argument);
  EXPECT_THROW((void)NSMutableArray::arrayWithObjects({nullptr}), std::invalid_argument);
  EXPECT_THROW(NSMutableArray::array()->addObject(nullptr), std::invalid_argument);
}

TEST(NSArray, ComparesMembersWhateverItsClass) {
  EXPECT_TRUE(sample()->isEqual(sample()));
  const auto changeable = NSMutableArray::arrayWithObjects({integer(1), str("abc"), str("a b")});
  EXPECT_TRUE(sample()->isEqual(changeable));
  EXPECT_TRUE(changeable->isEqual(sample()));
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

// Accesses, from its destructor, the array that contained it.
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

/// Counts how often keys are compared.
class CountingKey final : public NSObject {
 public:
  explicit CountingKey(int value) : value_(value) {}
  static const NSClass& classObject() {
    static const NSClass object{"CountingKey", &NSObject::classObject()};
    return object;
  }
  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  static inline std::size_t comparisons = 0;

 protected:
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override {
    ++comparisons;
    return value_ <=> static_cast<const CountingKey&>(other).value_;
  }

 private:
  const int value_;
};

TEST(NSDictionary, FindsAKeyWithFewComparisonsWhateverTheKeysAre) {
  constexpr int kCount = 1 << 14;
  std::vector<NSDictionary::Entry> entries;
  for (int i = 0; i < kCount; ++i)
    entries.emplace_back(std::make_shared<CountingKey>(i * 7919 % kCount), integer(i));
  CountingKey::comparisons = 0;
  const auto dictionary = NSDictionary::dictionaryWithEntries(std::move(entries));
  EXPECT_LE(CountingKey::comparisons, 16U * kCount);
  for (const int key : {0, 1, kCount / 3, kCount - 1}) {
    CountingKey::comparisons = 0;
    EXPECT_NE(dictionary->objectForKey(CountingKey(key)), nullptr);
    EXPECT_LE(CountingKey::comparisons, 16U);
  }
  EXPECT_EQ(dictionary->objectForKey(CountingKey(kCount)), nullptr);
  EXPECT_EQ(dictionary->objectForKey(CountingKey(-1)), nullptr);
}

TEST(NSDictionary, KeysMayBeOfAnyClass) {
  const auto key = NSArray::arrayWithObjects({str("a"), integer(1)});
  const auto dictionary = NSDictionary::dictionaryWithEntries(
      {{key, str("array")},
       {NSDictionary::dictionaryWithEntries({{key, integer(2)}}), str("dictionary")}});
  EXPECT_TRUE(dictionary->objectForKey(*NSMutableArray::arrayWithObjects({str("a"), integer(1)}))
                  ->isEqual(str("array")));
  EXPECT_TRUE(dictionary->objectForKey(*NSDictionary::dictionaryWithEntries({{key, integer(2)}}))
                  ->isEqual(str("dictionary")));
  EXPECT_EQ(dictionary->objectForKey(*NSArray::arrayWithObjects({str("a")})), nullptr);
}

TEST(NSDictionary, OfManyEqualKeysEachFirstPlaceStays) {
  std::vector<NSDictionary::Entry> entries;
  for (std::int64_t i = 0; i < 100; ++i) entries.emplace_back(integer(i * 3 % 10), integer(i));
  const auto dictionary = NSDictionary::dictionaryWithEntries(entries);
  ASSERT_EQ(dictionary->count(), 10U);
  for (std::int64_t i = 0; i < 10; ++i) {
    EXPECT_TRUE(
        dictionary->entries()[static_cast<std::size_t>(i)].first->isEqual(integer(i * 3 % 10)));
    EXPECT_TRUE(dictionary->objectForKey(*integer(i * 3 % 10))->isEqual(integer(90 + i)));
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
  EXPECT_FALSE(ab->isEqual(
      NSDictionary::dictionaryWithEntries({{str("a"), integer(1)}, {str("b"), integer(3)}})));
  EXPECT_FALSE(ab->isEqual(
      NSDictionary::dictionaryWithEntries({{str("a"), integer(1)}, {str("c"), integer(2)}})));
  EXPECT_FALSE(ab->isEqual(NSDictionary::dictionary()));
  const auto abc = NSDictionary::dictionaryWithEntries(
      {{str("a"), integer(1)}, {str("b"), integer(2)}, {str("c"), integer(3)}});
  EXPECT_FALSE(ab->isEqual(abc));
  EXPECT_FALSE(abc->isEqual(ab));
  EXPECT_FALSE(ab->isEqual(nullptr));
}

TEST(NSDictionary, IsOrderedByCountThenByKeysThenByValues) {
  const auto of = [](std::vector<NSDictionary::Entry> entries) {
    return NSDictionary::dictionaryWithEntries(std::move(entries));
  };
  const auto isBefore = [](const auto& a, const auto& b) {
    return NSObject::compare(a.get(), b.get()) < 0 && NSObject::compare(b.get(), a.get()) > 0;
  };
  EXPECT_TRUE(
      isBefore(of({{str("z"), integer(9)}}), of({{str("a"), integer(1)}, {str("b"), integer(1)}})));
  EXPECT_TRUE(isBefore(of({{str("a"), integer(9)}}), of({{str("b"), integer(1)}})));
  EXPECT_TRUE(isBefore(of({{str("a"), integer(1)}}), of({{str("a"), integer(2)}})));
}

TEST(NSDictionary, KeepsOtherEntriesInPlaceWhereEqualKeysAreMerged) {
  const auto dictionary = NSDictionary::dictionaryWithEntries({{str("b"), integer(1)},
                                                               {str("b"), integer(2)},
                                                               {str("d"), integer(3)},
                                                               {str("a"), integer(4)},
                                                               {str("d"), integer(5)},
                                                               {str("c"), integer(6)}});
  EXPECT_EQ(dictionary->description(), "{\n    b = 2;\n    d = 5;\n    a = 4;\n    c = 6;\n}");
  for (const auto& [key, value] : dictionary->entries())
    EXPECT_EQ(dictionary->objectForKey(*key), value);
}

TEST(NSDictionary, DescribesItselfInTheOrderOfInsertion) {
  const auto inner = NSDictionary::dictionaryWithEntries({{str("x y"), integer(2)}});
  const auto dictionary = NSDictionary::dictionaryWithEntries(
      {{str("b"), integer(1)}, {str("a"), inner}, {str("c"), NSArray::arrayWithObjects({})}});
  EXPECT_EQ(dictionary->description(),
            "{\n    b = 1;\n    a =     {\n        \"x y\" = 2;\n    };\n    c =     (\n    );\n}");
  EXPECT_EQ(NSDictionary::dictionary()->description(), "{\n}");
}

TEST(Order, IsTotalAndAgreesWithEquality) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto real = [](double value) { return NSNumber::numberWithDouble(value); };
  const auto pair = [](auto key, auto value) {
    return NSDictionary::dictionaryWithEntries({{key, value}});
  };
  const std::vector<std::shared_ptr<NSObject>> all = {
      nullptr,
      str("a"),
      str("b"),
      str(""),
      integer(1),
      NSNumber::numberWithBool(true),
      real(1),
      integer(-1),
      real(0.5),
      real(nan),
      real(-0.0),
      integer(0),
      NSNumber::numberWithUnsignedLongLong(~0ULL),
      real(0x1p64),
      real(std::numeric_limits<double>::infinity()),
      sample(),
      NSMutableArray::arrayWithObjects({integer(1), str("abc"), str("a b")}),
      NSArray::arrayWithObjects({}),
      NSArray::arrayWithObjects({integer(2)}),
      NSDictionary::dictionary(),
      pair(str("a"), integer(1)),
      pair(str("a"), integer(2)),
      pair(str("b"), integer(1)),
      pair(sample(), integer(1)),
      std::make_shared<NSObject>(),
      std::make_shared<NSObject>()};
  const auto order = [](const auto& a, const auto& b) {
    return NSObject::compare(a.get(), b.get());
  };
  for (const auto& a : all) {
    EXPECT_TRUE(order(a, a) == 0);
    for (const auto& b : all) {
      EXPECT_TRUE(order(a, b) == 0 ? order(b, a) == 0 : (order(a, b) < 0) == (order(b, a) > 0));
      if (a != nullptr) {
        EXPECT_EQ(a->isEqual(b), order(a, b) == 0);
      }
      for (const auto& c : all) {
        EXPECT_TRUE(order(a, b) > 0 || order(b, c) > 0 || order(a, c) <= 0);
      }
    }
  }
}

}  // namespace
}  // namespace platform
