// SPDX-License-Identifier: Apache-2.0

// Many ordinary descriptors, each made sensitive at one place in one of many ways.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "DeviceClassCases.h"
#include "router/policy/ClassRules.h"
#include "tests/support/SensitiveReports.h"

namespace {

using router::Classification;
using router::ClassRule;
using router::DeviceClass;
using router::Evidence;
using router::UsageRange;
using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes one, const Bytes& other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

Bytes shortItem(std::uint8_t tagAndType, std::uint32_t value, unsigned size) {
  Bytes item{static_cast<std::uint8_t>(tagAndType | (size == 4 ? 3 : size))};
  for (unsigned i = 0; i < size; ++i) item.push_back(static_cast<std::uint8_t>(value >> 8 * i));
  return item;
}

/// The bytes of one Input item with all that it needs, or anything between two of them.
struct Piece {
  Bytes items;
  bool isInput = false;
  std::uint8_t report = 0;
  bool isVendors = false;
};

/// A kind of usage that an ordinary field can have.
struct Kind {
  std::uint32_t page, first, last;
};

class Generator {
 public:
  explicit Generator(std::uint32_t seed) : random_(seed) {}

  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
  }

  std::vector<Piece> descriptor() {
    std::vector<Piece> pieces;
    usesReportIDs_ = below(3) != 0;
    report_ = 0;
    const std::size_t applications = 1 + below(4);
    for (std::size_t i = 0; i < applications; ++i) addApplication(&pieces);
    return pieces;
  }

 private:
  static Bytes page(std::uint32_t page) { return shortItem(0x04, page, page > 0xff ? 2 : 1); }

  void addApplication(std::vector<Piece>* pieces) {
    static const std::vector<std::pair<std::uint32_t, std::uint32_t>> kApplications = {
        {1, 4}, {1, 5}, {1, 8}, {0x0c, 1}, {0x0d, 2}, {0x0d, 5}, {2, 1}, {0x20, 1}, {0xff00, 1}};
    const auto [applicationPage, usage] = kApplications[below(kApplications.size())];
    isVendors_ = applicationPage == 0xff00;
    pieces->push_back({page(applicationPage) + shortItem(0x08, usage, 1) + bytes("a1 01"), false});
    const std::size_t reports = usesReportIDs_ ? 1 + below(3) : 1;
    for (std::size_t i = 0; i < reports; ++i) addReport(pieces);
    pieces->push_back({bytes("c0"), false});
  }

  void addReport(std::vector<Piece>* pieces) {
    if (usesReportIDs_) pieces->push_back({shortItem(0x84, ++report_, 1), false});
    const std::size_t fields = 1 + below(3);
    for (std::size_t i = 0; i < fields; ++i) {
      const bool isInside = below(3) == 0;
      if (isInside) pieces->push_back({bytes("05 01 09 01 a1 00"), false});  // physical Pointer
      addField(pieces);
      if (isInside) pieces->push_back({bytes("c0"), false});
    }
    if (below(3) == 0) pieces->push_back({bytes("75 08 95 01 81 03"), true, report_, isVendors_});
    if (below(4) == 0) pieces->push_back({bytes("05 07 09 04 75 08 95 01 91 02"), false});
    if (below(4) == 0) pieces->push_back({bytes("05 07 09 04 75 08 95 01 b1 02"), false});
  }

  void addField(std::vector<Piece>* pieces) {
    static const std::vector<Kind> kKinds = {
        {1, 0x30, 0x39},    {1, 0x90, 0x96},    {2, 0xc0, 0xc8},      {9, 1, 32},
        {0x0c, 0xb0, 0xf0}, {0x0d, 0x30, 0x48}, {0x20, 0x453, 0x455}, {0xff01, 1, 64}};
    const Kind& kind = kKinds[below(kKinds.size())];
    Bytes usages;
    if (below(2) == 0) {
      usages = shortItem(0x18, kind.first, 2) + shortItem(0x28, kind.last, 2);
    } else {
      const std::size_t count = 1 + below(4);
      for (std::size_t i = 0; i < count; ++i) {
        usages = usages +
                 shortItem(
                     0x08,
                     kind.first + static_cast<std::uint32_t>(below(kind.last - kind.first + 1)), 2);
      }
    }
    const Bytes layout = bytes("15 00 25 01 75 08") + shortItem(0x94, 1 + below(4), 1);
    const Bytes main = below(3) == 0 ? bytes("81 00") : bytes("81 02");
    pieces->push_back({page(kind.page) + usages + layout + main, true, report_,
                       isVendors_ || kind.page >= 0xff00});
  }

  std::mt19937 random_;
  bool usesReportIDs_ = false;
  bool isVendors_ = false;
  std::uint8_t report_ = 0;
};

Bytes joined(const std::vector<Piece>& pieces) {
  Bytes all;
  for (const Piece& piece : pieces) all = std::move(all) + piece.items;
  return all;
}

Classification classOf(const Bytes& descriptor) {
  router::DeviceFacts facts;
  facts.reportDescriptor = descriptor;
  return router::classify(facts);
}

/// One that a rule about usages names, and the rule.
std::pair<std::uint32_t, const ClassRule*> sensitiveUsage(Generator* generator) {
  std::vector<std::pair<UsageRange, const ClassRule*>> ranges;
  for (const ClassRule& rule : router::classRules()) {
    if (rule.evidence != Evidence::Usages) continue;
    for (const UsageRange& range : rule.usages) ranges.emplace_back(range, &rule);
  }
  const auto [range, rule] = ranges[generator->below(ranges.size())];
  return {range.first + static_cast<std::uint32_t>(
                            generator->below(std::size_t{range.last} - range.first + 1)),
          rule};
}

Bytes beforeMain(const Bytes& piece, const Bytes& items) {
  const auto main = piece.end() - 2;  // Input with one byte
  return Bytes(piece.begin(), main) + items + Bytes(main, piece.end());
}

struct Way {
  const char* name;
  Bytes (*apply)(const Bytes& piece, std::uint32_t usage);
};

const Way kWays[] = {
    {"before the item's usages",
     [](const Bytes& piece, std::uint32_t usage) { return shortItem(0x08, usage, 4) + piece; }},
    {"behind the item's usages",
     [](const Bytes& piece, std::uint32_t usage) {
       return beforeMain(piece, shortItem(0x08, usage, 4));
     }},
    {"as a range",
     [](const Bytes& piece, std::uint32_t usage) {
       return beforeMain(piece, shortItem(0x18, usage, 4) + shortItem(0x28, usage, 4));
     }},
    {"as the second of two alternatives",
     [](const Bytes& piece, std::uint32_t usage) {
       return beforeMain(
           piece, bytes("a9 01 0b 01 00 09 00") + shortItem(0x08, usage, 4) + bytes("a9 00"));
     }},
    {"as a first end",
     [](const Bytes& piece, std::uint32_t usage) {
       return beforeMain(piece, shortItem(0x18, usage, 4));
     }},
    {"as a last end",
     [](const Bytes& piece, std::uint32_t usage) {
       return beforeMain(piece, shortItem(0x28, usage, 4));
     }},
    {"on a page that does not last",
     [](const Bytes& piece, std::uint32_t usage) {
       return bytes("a4") + shortItem(0x04, usage >> 16U, 2) + shortItem(0x08, usage & 0xffffU, 2) +
              bytes("b4") + piece;
     }},
    {"as a field of its own",
     [](const Bytes& piece, std::uint32_t usage) {
       return piece + bytes("a4 15 00 25 01 75 08 95 01") + shortItem(0x08, usage, 4) +
              bytes("81 02 b4");
     }},
    {"as a constant of its own",
     [](const Bytes& piece, std::uint32_t usage) {
       return piece + bytes("a4 75 08 95 01") + shortItem(0x08, usage, 4) + bytes("81 03 b4");
     }},
    {"as an application around it",
     [](const Bytes& piece, std::uint32_t usage) {
       return shortItem(0x08, usage, 4) + bytes("a1 01") + piece + bytes("c0");
     }},
    {"as one of an application's alternatives",
     [](const Bytes& piece, std::uint32_t usage) {
       return bytes("a9 01 0b 05 00 01 00") + shortItem(0x08, usage, 4) + bytes("a9 00 a1 01") +
              piece + bytes("c0");
     }},
    {"as a named array around it",
     [](const Bytes& piece, std::uint32_t usage) {
       return shortItem(0x08, usage, 4) + bytes("a1 04") + piece + bytes("c0");
     }},
};

std::set<std::uint8_t> reportsIn(const std::vector<Piece>& pieces,
                                 const std::function<bool(const Piece&)>& which) {
  std::set<std::uint8_t> reports;
  for (const Piece& piece : pieces)
    if (piece.isInput && which(piece)) reports.insert(piece.report);
  return reports;
}

/// Makes one Input item sensitive and checks that its report is the only one that became so.
void checkOneChange(Generator* generator, std::vector<Piece> pieces) {
  std::vector<Piece*> inputs;
  for (Piece& piece : pieces)
    if (piece.isInput) inputs.push_back(&piece);
  Piece& changed = *inputs[generator->below(inputs.size())];
  const auto [usage, rule] = sensitiveUsage(generator);
  const Way& way = kWays[generator->below(std::size(kWays))];
  SCOPED_TRACE(std::string(rule->words) + " " + way.name + ", report " +
               std::to_string(changed.report));
  changed.items = way.apply(changed.items, usage);

  const Bytes descriptor = joined(pieces);
  const Classification found = classOf(descriptor);
  ASSERT_EQ(found.deviceClass, DeviceClass::Sensitive);
  EXPECT_TRUE(found.reason.starts_with(rule->words)) << found.reason;
  std::set<std::uint8_t> expected = reportsIn(pieces, [](const Piece&) { return true; });
  expected.erase(0);  // of a descriptor without IDs
  expected.erase(changed.report);
  if (rule->isKeyboard) {
    for (const std::uint8_t report :
         reportsIn(pieces, [](const Piece& piece) { return piece.isVendors; }))
      expected.erase(report);
  }
  EXPECT_EQ(found.ordinaryReports, expected);
  for (const std::uint8_t report : test::sensitiveReports(descriptor).reports)
    EXPECT_FALSE(found.ordinaryReports.contains(report)) << int{report};
}

TEST(DeviceClassProperty, ASensitiveUsageAnywhereMakesItsReportSensitive) {
  constexpr std::uint32_t kDescriptors = 4000;
  for (std::uint32_t seed = 0; seed < kDescriptors; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Generator generator(seed);
    const std::vector<Piece> pieces = generator.descriptor();
    const Classification before = classOf(joined(pieces));
    ASSERT_EQ(before.deviceClass, DeviceClass::Ordinary) << before.reason;
    checkOneChange(&generator, pieces);
    if (testing::Test::HasFailure()) break;
  }
}

/// The offsets of the main items of a descriptor that are Input items.
std::vector<std::size_t> inputsOf(const Bytes& descriptor) {
  std::vector<std::size_t> offsets;
  for (std::size_t at = 0; at < descriptor.size();) {
    const unsigned size = descriptor[at] & 3U;
    if ((descriptor[at] & 0xfcU) == 0x80) offsets.push_back(at);
    at += size == 3 ? 5 : size + 1;
  }
  return offsets;
}

/// Whether the item has bits: those of a count of 0 carry nothing.
bool takesBits(const Bytes& descriptor, std::size_t at) {
  return at < 2 || descriptor[at - 1] != 0 || descriptor[at - 2] != 0x95;
}

TEST(DeviceClassProperty, AKeyBeforeAnyInputOfAListedDeviceMakesItSensitive) {
  std::size_t changes = 0;
  for (const DeviceClassCase& listed : deviceClassCases()) {
    if (listed.expected.deviceClass != DeviceClass::Ordinary || listed.facts.decided) continue;
    SCOPED_TRACE(listed.name);
    const Bytes& descriptor = listed.facts.reportDescriptor;
    for (const std::size_t at : inputsOf(descriptor)) {
      if (!takesBits(descriptor, at)) continue;
      const auto place = descriptor.begin() + static_cast<std::ptrdiff_t>(at);
      const Bytes changed = Bytes(descriptor.begin(), place) + bytes("0b 04 00 07 00") +
                            Bytes(place, descriptor.end());
      const Classification found = classOf(changed);
      EXPECT_EQ(found.deviceClass, DeviceClass::Sensitive) << "offset " << at;
      for (const std::uint8_t report : test::sensitiveReports(changed).reports)
        EXPECT_FALSE(found.ordinaryReports.contains(report)) << "offset " << at;
      ++changes;
    }
  }
  EXPECT_GT(changes, 40U);
}

std::string hexOf(const Bytes& descriptor) {
  std::string text;
  for (const std::uint8_t byte : descriptor) {
    constexpr const char* kDigits = "0123456789abcdef";
    text += {kDigits[byte >> 4], kDigits[byte & 15], ' '};
  }
  return text;
}

/// Items in any order, most of which parse, behind a field of a button.
Bytes randomItems(Generator* generator) {
  static const Bytes kPrefixes = {0x05, 0x09, 0x0b, 0x19, 0x29, 0x1b, 0x2b, 0x75, 0x95, 0x85,
                                  0xa4, 0xb4, 0xa1, 0xc0, 0x81, 0x81, 0x81, 0x91, 0x25};
  static const Bytes kValues = {1, 1, 2, 4, 5, 6, 7, 8, 9, 9, 9, 0x0c, 0x80, 0x81, 0x90, 0xb7};
  const Bytes button = bytes("05 09 09 01 25 01 75 08 95 01 81 02");
  Bytes descriptor = generator->below(2) == 0 ? bytes("85 09") + button : button;
  std::size_t open = 0;
  std::size_t pushed = 0;
  for (std::size_t i = 3 + generator->below(12); i > 0; --i) {
    const std::uint8_t prefix = kPrefixes[generator->below(kPrefixes.size())];
    if ((prefix == 0xc0 && open == 0) || (prefix == 0xb4 && pushed == 0)) continue;
    open += prefix == 0xa1 ? 1 : prefix == 0xc0 ? -1 : 0;
    pushed += prefix == 0xa4 ? 1 : prefix == 0xb4 ? -1 : 0;
    descriptor.push_back(prefix);
    const unsigned size = prefix == 0xa4 || prefix == 0xb4 ? 0 : prefix & 3U;
    for (unsigned k = 0; k < (size == 3 ? 4 : size); ++k)
      descriptor.push_back(k % 2 == 1 ? 0 : kValues[generator->below(kValues.size())]);
  }
  descriptor.insert(descriptor.end(), open, 0xc0);
  return descriptor;
}

/// What the plain walk finds sensitive is never called ordinary.
TEST(DeviceClassProperty, NoRandomItemsMakeASensitiveReportOrdinary) {
  std::size_t sensitive = 0;
  std::size_t ordinary = 0;
  std::size_t mixed = 0;
  for (std::uint32_t seed = 0; seed < 20000; ++seed) {
    Generator generator(seed);
    const Bytes descriptor = randomItems(&generator);
    const Classification found = classOf(descriptor);
    const test::SensitiveReports expected = test::sensitiveReports(descriptor);
    (found.deviceClass == DeviceClass::Ordinary ? ordinary : sensitive) += 1;
    mixed += found.ordinaryReports.empty() ? 0 : 1;
    ASSERT_FALSE(found.deviceClass == DeviceClass::Ordinary && expected.isAnything)
        << "seed " << seed << ": " << hexOf(descriptor);
    for (const std::uint8_t report : expected.reports)
      ASSERT_FALSE(found.ordinaryReports.contains(report))
          << "seed " << seed << ": " << hexOf(descriptor);
  }
  EXPECT_GT(sensitive, 1000U);
  EXPECT_GT(ordinary, 1000U);
  EXPECT_GT(mixed, 100U);
}

}  // namespace
