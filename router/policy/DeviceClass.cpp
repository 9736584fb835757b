// SPDX-License-Identifier: Apache-2.0

#include "router/policy/DeviceClass.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "router/ReportDescriptor.h"
#include "router/policy/ClassRules.h"

namespace router {

namespace {

constexpr std::uint32_t kFirstVendorUsage = 0xff000000;

std::uint32_t usageOnPage(std::uint32_t page, std::uint32_t id) {
  return page << 16U | id;
}

/// "01:06"
std::string textOf(std::uint32_t usage) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%02X:%02X", usage >> 16U, usage & 0xffffU);
  return text.data();
}

/// "Keyboard (01:06)", "07:04" or "07:00–07:E7"
std::string textOf(const UsageRange& range, const ClassRule& rule) {
  if (range.first != range.last) return textOf(range.first) + "–" + textOf(range.last);
  if (rule.usageName.empty()) return textOf(range.first);
  return std::string(rule.usageName) + " (" + textOf(range.first) + ")";
}

/// What a field may carry, whether or not it says so.
std::vector<UsageRange> usagesOf(const ReportField& field) {
  std::vector<UsageRange> usages = field.everyUsage;
  if (field.usages.empty() && !field.constant) {  // a constant without usages is padding
    const std::uint32_t last = field.variable ? 0 : 0xffff;
    usages.push_back({usageOnPage(field.usagePage, 0), usageOnPage(field.usagePage, last)});
  }
  return usages;
}

/// Whether the field says what it carries. Usage 0 is undefined, except where a vendor defines it.
bool isKnown(const ReportField& field) {
  if (field.constant) return false;
  const std::vector<UsageRange> usages = usagesOf(field);
  return std::ranges::any_of(usages, [](const UsageRange& range) {
    return (range.last & 0xffffU) != 0 || range.last >= kFirstVendorUsage;
  });
}

/// A rule that applies, and the usages by which it does.
struct Match {
  const ClassRule* rule = nullptr;
  UsageRange usages;
};

/// The first rule that applies to one of `usages`.
Match matchOf(const std::vector<UsageRange>& usages, bool isInnerCollection,
              bool isBesideKeyboard) {
  for (const ClassRule& rule : classRules()) {
    if (rule.evidence == Evidence::UsagesBesideKeyboard && !isBesideKeyboard) continue;
    if (rule.ignoresInnerCollections && isInnerCollection) continue;
    for (const UsageRange& named : usages) {
      const auto overlaps = [&](const UsageRange& range) { return range.overlaps(named); };
      if (std::ranges::any_of(rule.usages, overlaps)) return {&rule, named};
    }
  }
  return {};
}

/// Collections that only say how fields belong together. One that nothing encloses says what the
/// device is, whatever its type.
bool isInner(const Collection& collection) {
  return collection.enclosing.has_value() &&
         (collection.type == Collection::kPhysical || collection.type == Collection::kLogical);
}

class Judge {
 public:
  Judge(const ReportDescriptor& descriptor, bool isBesideKeyboard)
      : descriptor_(descriptor), isBesideKeyboard_(isBesideKeyboard) {
    for (const Collection& collection : descriptor.collections()) judge(collection);
    for (const ReportField& field : descriptor.fields()) {
      if (field.type == ReportType::Input) judge(field);
    }
    judgeUnknownReports();
  }

  /// Replaces an earlier decision by a rule that comes later in the table.
  void decide(const ClassRule& rule, const std::string& where) {
    if (rule_ != nullptr && rule_ <= &rule) return;
    rule_ = &rule;
    where_ = where;
  }

  [[nodiscard]] bool isSensitive() const { return rule_ != nullptr; }
  [[nodiscard]] std::string reason() const {
    if (rule_ == nullptr) return "no rule applies";
    return std::string(rule_->words) + (where_.empty() ? "" : ": ") + where_;
  }
  [[nodiscard]] bool isKeyboard() const { return rule_ != nullptr && rule_->isKeyboard; }
  /// Whether input reports say that they carry keys.
  [[nodiscard]] bool hasKeyReports() const { return hasKeyReports_; }
  [[nodiscard]] std::set<std::uint8_t> ordinaryReports() const {
    std::set<std::uint8_t> ordinary;
    if (!descriptor_.usesReportIDs()) return ordinary;
    std::ranges::set_difference(known_, sensitive_, std::inserter(ordinary, ordinary.end()));
    return ordinary;
  }

 private:
  /// A report of which nothing is known is like a vendor's own format: suspect beside a keyboard.
  void judgeUnknownReports() {
    const ClassRule& rule = classRule(Evidence::NothingToJudge);
    if (reports_.empty()) decide(rule, "it has no input report");
    if (!known_.empty() && !isBesideKeyboard_) return;
    for (const std::uint8_t report : reports_)
      if (!known_.contains(report) && !sensitive_.contains(report)) decide(rule, nameOf(report));
  }

  void judge(const Collection& collection) {
    const Match match = matchOf(collection.everyUsage, isInner(collection), isBesideKeyboard_);
    if (match.rule != nullptr)
      decide(*match.rule, "collection " + textOf(match.usages, *match.rule));
    const ClassRule* const outer =
        collection.enclosing ? ruleOfCollection_[*collection.enclosing] : nullptr;
    ruleOfCollection_.push_back(earlier(match.rule, outer));
  }

  void judge(const ReportField& field) {
    reports_.insert(field.reportID);
    // Where IDs are used, no report can be told by ID 0.
    if (isKnown(field) && (field.reportID != 0 || !descriptor_.usesReportIDs()))
      known_.insert(field.reportID);
    const Match match = matchOf(usagesOf(field), false, isBesideKeyboard_);
    if (match.rule != nullptr) decide(*match.rule, placeOf(field, match));
    const ClassRule* const rule =
        earlier(match.rule, field.collection ? ruleOfCollection_[*field.collection] : nullptr);
    if (rule == nullptr) return;
    sensitive_.insert(field.reportID);
    hasKeyReports_ = hasKeyReports_ || rule->isKeyboard;
  }

  /// The one that comes first in the table.
  static const ClassRule* earlier(const ClassRule* one, const ClassRule* other) {
    if (one == nullptr || other == nullptr) return one == nullptr ? other : one;
    return std::min(one, other);
  }

  [[nodiscard]] std::string nameOf(std::uint8_t report) const {
    return descriptor_.usesReportIDs() ? "report " + std::to_string(report) : "its only report";
  }

  [[nodiscard]] std::string placeOf(const ReportField& field, const Match& match) const {
    const bool isRange = match.usages.first != match.usages.last;
    return (descriptor_.usesReportIDs() ? nameOf(field.reportID) + ", " : "") +
           (isRange ? "usage range " : "usage ") + textOf(match.usages, *match.rule);
  }

  const ReportDescriptor& descriptor_;
  bool isBesideKeyboard_;
  const ClassRule* rule_ = nullptr;  // that decides so far
  std::string where_;
  std::vector<const ClassRule*> ruleOfCollection_;  // with those that it lies in; null: none
  std::set<std::uint8_t> reports_;                  // with an Input item
  std::set<std::uint8_t> known_;                    // with a field that says what it carries
  std::set<std::uint8_t> sensitive_;
  bool hasKeyReports_ = false;
};

Judge judgeOf(const ReportDescriptor& descriptor, const DeviceFacts& facts) {
  const bool isBesideKeyboard =
      facts.isBesideKeyboard || facts.isBootKeyboard || facts.hasKeyboardNode;
  Judge judge(descriptor, isBesideKeyboard);
  if (isBesideKeyboard || !judge.isKeyboard()) return judge;
  return {descriptor, true};
}

Classification classOf(const ReportDescriptor& descriptor, const DeviceFacts& facts) {
  Judge judge = judgeOf(descriptor, facts);
  if (facts.isBootKeyboard) judge.decide(classRule(Evidence::BootKeyboard), "");
  if (facts.hasKeyboardNode) judge.decide(classRule(Evidence::KeyboardNode), "");
  if (!judge.isSensitive()) return {DeviceClass::Ordinary, judge.reason(), {}};
  // A report of the boot protocol has no ID: its first byte, the modifiers, can look like that of
  // an ordinary report. And if the system sees keys that the descriptor does not name, they may be
  // in any report.
  const bool isExplained =
      !facts.isBootKeyboard && (!facts.hasKeyboardNode || judge.hasKeyReports());
  return {DeviceClass::Sensitive, judge.reason(),
          isExplained ? judge.ordinaryReports() : std::set<std::uint8_t>()};
}

}  // namespace

Classification classify(const DeviceFacts& facts) {
  if (facts.decided) {
    // The administrator speaks of the device, so none of its reports is left out.
    return {*facts.decided, std::string(classRule(Evidence::Administrator).words), {}};
  }
  try {
    return classOf(ReportDescriptor::parse(facts.reportDescriptor), facts);
  } catch (const ReportDescriptorError& error) {
    return {DeviceClass::Sensitive,
            std::string(classRule(Evidence::UnreadableDescriptor).words) + ": " + error.what(),
            {}};
  }
}

}  // namespace router
