// SPDX-License-Identifier: Apache-2.0

#include "router/ReportDescriptor.h"

#include <algorithm>
#include <array>
#include <utility>

#include "router/DescriptorItems.h"
#include "router/RouterLimits.h"

namespace router {

namespace {

using Item = DescriptorItem;
using ItemReader = DescriptorItemReader;
using ItemType = DescriptorItemType;

constexpr std::uint32_t kMaxReportBits = RouterLimits::kReportBytes * 8;

std::int64_t signExtended(std::uint32_t value, std::uint8_t bytes) {
  switch (bytes) {
    case 1:
      return static_cast<std::int8_t>(value);
    case 2:
      return static_cast<std::int16_t>(value);
    default:
      return static_cast<std::int32_t>(value);
  }
}

/// Four bits of two's complement; some devices write a signed number of a whole byte or more.
std::int32_t unitExponentOf(const Item& item) {
  constexpr std::int32_t kNibbleRange = 16;
  if (item.value >= kNibbleRange)
    return static_cast<std::int32_t>(signExtended(item.value, item.size));
  const auto nibble = static_cast<std::int32_t>(item.value);
  return nibble < kNibbleRange / 2 ? nibble : nibble - kNibbleRange;
}

/// Devices write 0…255 as 15 00 25 ff, so the maximum is signed only if the minimum is negative,
/// which is decided only at the main item.
struct Limits {
  std::int64_t minimum = 0;
  std::uint32_t rawMaximum = 0;
  std::uint8_t maximumSize = 0;

  void setMinimum(const Item& item) { minimum = signExtended(item.value, item.size); }
  void setMaximum(const Item& item) {
    rawMaximum = item.value;
    maximumSize = item.size;
  }
  [[nodiscard]] std::int64_t maximum() const {
    return minimum < 0 ? signExtended(rawMaximum, maximumSize)
                       : static_cast<std::int64_t>(rawMaximum);
  }
};

/// Values that persist from item to item; Push and Pop save and restore them all.
struct Globals {
  std::uint32_t usagePage = 0;
  Limits logical;
  Limits physical;
  std::uint32_t unit = 0;
  std::int32_t unitExponent = 0;
  std::uint32_t reportSize = 0;
  std::uint32_t reportCount = 0;
  std::uint8_t reportID = 0;

  /// What values mean; any other item is left alone.
  void takeRange(const Item& item) {
    switch (static_cast<GlobalTag>(item.tag)) {
      case GlobalTag::LogicalMinimum:
        logical.setMinimum(item);
        break;
      case GlobalTag::LogicalMaximum:
        logical.setMaximum(item);
        break;
      case GlobalTag::PhysicalMinimum:
        physical.setMinimum(item);
        break;
      case GlobalTag::PhysicalMaximum:
        physical.setMaximum(item);
        break;
      case GlobalTag::UnitExponent:
        unitExponent = unitExponentOf(item);
        break;
      case GlobalTag::Unit:
        unit = item.value;
        break;
      default:
        break;  // reserved
    }
  }
};

/// A usage as given by an item: only a four-byte one includes its page.
struct RawUsage {
  std::uint32_t id = 0;
  std::optional<std::uint32_t> page;
  std::uint32_t pageInForce = 0;  // where the usage stands

  [[nodiscard]] std::uint32_t on(std::uint32_t defaultPage) const {
    return page.value_or(defaultPage) << 16U | id;
  }
};

struct RawRange {
  RawUsage first;
  RawUsage last;
};

/// All that a range can mean at a main item where `page` is in force. If only one end names its
/// page, the other's is that one, or the one in force; and the one in force may be that of the
/// main item, or that of the end itself.
void appendReadings(const RawRange& range, std::uint32_t page, std::vector<UsageRange>* to) {
  const std::uint32_t ofRange = range.first.page.value_or(range.last.page.value_or(page));
  const std::array<std::pair<std::uint32_t, std::uint32_t>, 3> readings = {
      {{range.first.on(ofRange), range.last.on(ofRange)},
       {range.first.on(page), range.last.on(page)},
       {range.first.on(range.first.pageInForce), range.last.on(range.last.pageInForce)}}};
  const std::size_t before = to->size();
  for (const auto& [one, other] : readings) {
    const UsageRange reading{std::min(one, other), std::max(one, other)};
    if (std::find(to->begin() + static_cast<std::ptrdiff_t>(before), to->end(), reading) ==
        to->end())
      to->push_back(reading);
  }
}

/// Values for the next main item only.
struct Locals {
  std::vector<RawRange> usages;  // those that count
  std::vector<RawRange> others;  // alternatives, and ends of a range without another
  std::optional<RawUsage> minimum;
  std::optional<RawUsage> maximum;
  bool inDelimiter = false;
  bool delimitedUsageTaken = false;
};

class Parser {
 public:
  explicit Parser(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  /// Up to the first fault, which is returned.
  std::optional<ReportDescriptorError> run() {
    std::optional<ReportDescriptorError> fault;
    try {
      takeAll();
    } catch (const ReportDescriptorError& error) {
      fault = error;
    }
    if (usesReportIDs_) makeRoomForReportIDs();
    return fault;
  }

  std::vector<ReportField> fields;
  std::vector<Collection> collections;
  [[nodiscard]] bool usesReportIDs() const { return usesReportIDs_; }
  [[nodiscard]] std::uint32_t elementCount() const { return elementCount_; }

 private:
  void takeAll() {
    if (bytes_.size() > RouterLimits::kDescriptorBytes) {
      throw ReportDescriptorError(RouterLimits::kDescriptorBytes,
                                  "the descriptor is longer than " +
                                      std::to_string(RouterLimits::kDescriptorBytes) + " bytes");
    }
    ItemReader reader(bytes_);
    Item item;
    while (reader.next(&item)) take(item);
    if (openCollections_.empty()) return;
    throw ReportDescriptorError(
        bytes_.size(), std::to_string(openCollections_.size()) + " collections are left open");
  }

  [[noreturn]] static void fail(const Item& item, const std::string& cause) {
    throw ReportDescriptorError(item.offset, cause);
  }

  void take(const Item& item) {
    switch (item.type) {
      case ItemType::Main:
        takeMain(item);
        break;
      case ItemType::Global:
        takeGlobal(item);
        break;
      case ItemType::Local:
        takeLocal(item);
        break;
      case ItemType::Reserved:
        break;
    }
  }

  void takeMain(const Item& item) {
    if (locals_.inDelimiter) fail(item, "a delimiter is left open at a main item");
    switch (static_cast<MainTag>(item.tag)) {
      case MainTag::Input:
        addField(item, ReportType::Input);
        break;
      case MainTag::Output:
        addField(item, ReportType::Output);
        break;
      case MainTag::Feature:
        addField(item, ReportType::Feature);
        break;
      case MainTag::Collection:
        openCollection(item);
        break;
      case MainTag::EndCollection:
        if (openCollections_.empty()) fail(item, "a collection is closed that was not opened");
        openCollections_.pop_back();
        break;
    }
    locals_ = {};
  }

  void openCollection(const Item& item) {
    if (openCollections_.size() == RouterLimits::kCollectionDepth)
      fail(item, "collections are nested too deeply");
    collections.push_back({item.value, innermostCollection(), everyUsage(), item.offset});
    openCollections_.push_back(collections.size() - 1);
  }

  [[nodiscard]] std::optional<std::size_t> innermostCollection() const {
    if (openCollections_.empty()) return std::nullopt;
    return openCollections_.back();
  }

  void takeGlobal(const Item& item) {
    switch (static_cast<GlobalTag>(item.tag)) {
      case GlobalTag::UsagePage:
        if (item.value > 0xffffU) fail(item, "the usage page does not fit in 16 bits");
        globals_.usagePage = item.value;
        break;
      case GlobalTag::ReportSize:
        globals_.reportSize = item.value;
        break;
      case GlobalTag::ReportCount:
        globals_.reportCount = item.value;
        break;
      case GlobalTag::ReportID:
        setReportID(item);
        break;
      case GlobalTag::Push:
        if (stack_.size() == RouterLimits::kGlobalStackDepth)
          fail(item, "too many values are pushed");
        stack_.push_back(globals_);
        break;
      case GlobalTag::Pop:
        if (stack_.empty()) fail(item, "values are popped that were not pushed");
        globals_ = stack_.back();
        stack_.pop_back();
        break;
      default:
        globals_.takeRange(item);
    }
  }

  void setReportID(const Item& item) {
    if (item.value == 0 || item.value > 0xffU) fail(item, "a report ID must be 1 to 255");
    globals_.reportID = static_cast<std::uint8_t>(item.value);
    usesReportIDs_ = true;
  }

  void takeLocal(const Item& item) {
    switch (static_cast<LocalTag>(item.tag)) {
      case LocalTag::Usage: {
        const RawUsage usage = rawUsage(item);
        addUsages({usage, usage});
        break;
      }
      case LocalTag::UsageMinimum:
        setEnd(rawUsage(item), &locals_.minimum);
        completeRange(item);
        break;
      case LocalTag::UsageMaximum:
        setEnd(rawUsage(item), &locals_.maximum);
        completeRange(item);
        break;
      case LocalTag::Delimiter:
        takeDelimiter(item);
        break;
      default:
        break;  // designators and strings
    }
  }

  [[nodiscard]] RawUsage rawUsage(const Item& item) const {
    if (item.size < 4) return {item.value, std::nullopt, globals_.usagePage};
    return {item.value & 0xffffU, item.value >> 16U, globals_.usagePage};
  }

  void setEnd(const RawUsage& end, std::optional<RawUsage>* to) {
    if (*to) locals_.others.push_back({**to, **to});  // it will not get another end
    *to = end;
  }

  /// The two ends of a range may come in either order, and only one of them needs to give the page.
  void completeRange(const Item& item) {
    if (!locals_.minimum || !locals_.maximum) return;
    const RawUsage first = *locals_.minimum;
    const RawUsage last = *locals_.maximum;
    locals_.minimum.reset();
    locals_.maximum.reset();
    if (first.page && last.page && *first.page != *last.page)
      fail(item, "a usage range spans two usage pages");
    if (last.id < first.id) fail(item, "a usage range ends before it begins");
    addUsages({first, last});
  }

  void addUsages(const RawRange& range) {
    if (locals_.inDelimiter) {
      if (locals_.delimitedUsageTaken) {
        locals_.others.push_back(range);
        return;
      }
      locals_.delimitedUsageTaken = true;
    }
    locals_.usages.push_back(range);
  }

  /// Of the main item, in every reading.
  [[nodiscard]] std::vector<UsageRange> everyUsage() const {
    std::vector<UsageRange> all;
    for (const auto* ranges : {&locals_.usages, &locals_.others}) {
      for (const RawRange& range : *ranges) appendReadings(range, globals_.usagePage, &all);
    }
    for (const auto& end : {locals_.minimum, locals_.maximum}) {
      if (end) appendReadings({*end, *end}, globals_.usagePage, &all);
    }
    return all;
  }

  void takeDelimiter(const Item& item) {
    if (item.value > 1) fail(item, "a delimiter must open (1) or close (0) a set");
    const bool opens = item.value == 1;
    if (opens == locals_.inDelimiter)
      fail(item, opens ? "delimiters are nested" : "a delimiter closes a set that is not open");
    locals_.inDelimiter = opens;
    locals_.delimitedUsageTaken = false;
  }

  void addField(const Item& item, ReportType type) {
    if (globals_.reportCount == 0 || globals_.reportSize == 0) return;
    if (globals_.reportCount > RouterLimits::kElements - elementCount_) {
      fail(item, "more than " + std::to_string(RouterLimits::kElements) + " elements");
    }
    ReportField field;
    field.type = type;
    field.reportID = globals_.reportID;
    field.constant = (item.value & 1U) != 0;
    field.variable = (item.value & 2U) != 0;
    field.relative = (item.value & 4U) != 0;
    field.hasNullState = (item.value & 0x40U) != 0;
    field.bitSize = globals_.reportSize;
    field.count = globals_.reportCount;
    field.usagePage = globals_.usagePage;
    if (type == ReportType::Input && !field.constant) countValues(item);
    setRanges(item, &field);
    field.bitOffset = reserveBits(item, type);
    field.firstCookie = elementCount_ + 1;
    elementCount_ += field.count;
    for (const RawRange& range : locals_.usages) {
      const auto page = range.first.page ? range.first.page : range.last.page;
      field.usages.appendRange(page.value_or(globals_.usagePage), range.first.id, range.last.id);
    }
    field.everyUsage = everyUsage();
    field.collection = innermostCollection();
    field.offset = item.offset;
    fields.push_back(std::move(field));
  }

  /// What the field adds to each report that carries it.
  void countValues(const Item& item) {
    std::uint32_t& ofReport = reportValues_[globals_.reportID];
    if (globals_.reportCount > RouterLimits::kReportValues - ofReport) {
      fail(item, "a report has more than " + std::to_string(RouterLimits::kReportValues) +
                     " element values");
    }
    if (globals_.reportCount > RouterLimits::kValues - valueCount_) {
      fail(item, "all reports together have more than " + std::to_string(RouterLimits::kValues) +
                     " element values");
    }
    ofReport += globals_.reportCount;
    valueCount_ += globals_.reportCount;
  }

  void setRanges(const Item& item, ReportField* field) const {
    field->logicalMinimum = globals_.logical.minimum;
    field->logicalMaximum = globals_.logical.maximum();
    field->physicalMinimum = globals_.physical.minimum;
    field->physicalMaximum = globals_.physical.maximum();
    field->unit = globals_.unit;
    field->unitExponent = globals_.unitExponent;
    if (!field->constant && field->logicalMaximum < field->logicalMinimum) {
      fail(item, "the logical maximum " + std::to_string(field->logicalMaximum) +
                     " is below the minimum " + std::to_string(field->logicalMinimum));
    }
  }

  std::uint32_t reserveBits(const Item& item, ReportType type) {
    std::uint32_t& used = reportBits_[static_cast<std::size_t>(type)][globals_.reportID];
    const std::uint64_t needed = std::uint64_t{globals_.reportSize} * globals_.reportCount;
    // Eight bits are reserved for an ID byte that a later item may require.
    if (needed > kMaxReportBits - 8 - used) {
      fail(item,
           "a report is larger than " + std::to_string(RouterLimits::kReportBytes) + " bytes");
    }
    return std::exchange(used, used + static_cast<std::uint32_t>(needed));
  }

  /// One report ID anywhere adds an ID byte to every report, so this is known only at the end.
  void makeRoomForReportIDs() {
    for (ReportField& field : fields) field.bitOffset += 8;
  }

  std::span<const std::uint8_t> bytes_;
  Globals globals_;
  Locals locals_;
  std::vector<Globals> stack_;
  std::vector<std::size_t> openCollections_;  // indexes, the innermost last
  std::uint32_t elementCount_ = 0;
  std::uint32_t valueCount_ = 0;  // of Input items
  std::array<std::uint32_t, 256> reportValues_{};
  bool usesReportIDs_ = false;
  std::array<std::array<std::uint32_t, 256>, 3> reportBits_{};
};

}  // namespace

ReportDescriptorError::ReportDescriptorError(std::size_t offset, const std::string& cause)
    : std::runtime_error("offset " + std::to_string(offset) + ": " + cause), offset_(offset) {}

ReportDescriptor::ReportDescriptor(std::vector<ReportField> fields,
                                   std::vector<Collection> collections, bool usesReportIDs,
                                   std::uint32_t elementCount)
    : fields_(std::move(fields)),
      collections_(std::move(collections)),
      usesReportIDs_(usesReportIDs),
      elementCount_(elementCount) {}

ReportDescriptor ReportDescriptor::parse(std::span<const std::uint8_t> bytes) {
  FaultyDescriptor parsed = parseUpToFault(bytes);
  if (parsed.fault) throw ReportDescriptorError(*parsed.fault);
  return std::move(parsed.descriptor);
}

FaultyDescriptor ReportDescriptor::parseUpToFault(std::span<const std::uint8_t> bytes) {
  Parser parser(bytes);
  std::optional<ReportDescriptorError> fault = parser.run();
  return {{std::move(parser.fields), std::move(parser.collections), parser.usesReportIDs(),
           parser.elementCount()},
          std::move(fault)};
}

}  // namespace router
