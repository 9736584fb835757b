// SPDX-License-Identifier: Apache-2.0

// A second opinion on what a report descriptor says of keys: a plain walk over its items, which
// shares neither code nor tables with the router and knows the few numbers that matter by heart.
// It looks at usages as they stand, on the page in force at the main item.
//
// Threading: any thread.
// Errors: none. It ends where an item is cut off; what it found until then stays.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace test {

struct SensitiveReports {
  bool isAnything = false;         ///< a collection or an input field is sensitive
  std::set<std::uint8_t> reports;  ///< IDs of the input reports with such fields
};

class SensitiveReportsWalk {
 public:
  static SensitiveReports over(std::span<const std::uint8_t> bytes) {
    SensitiveReportsWalk walk;
    while (!bytes.empty()) {
      const std::size_t length = lengthOf(bytes);
      if (length > bytes.size()) break;
      if (bytes[0] != 0xfe) walk.take(bytes.first(length));
      bytes = bytes.subspan(length);
    }
    return walk.found_;
  }

 private:
  struct Globals {
    std::uint32_t page = 0, size = 0, count = 0, report = 0;
  };
  struct Named {
    std::optional<std::uint32_t> page;
    std::uint32_t first = 0, last = 0;
  };

  static std::size_t lengthOf(std::span<const std::uint8_t> bytes) {
    if (bytes[0] == 0xfe) return bytes.size() < 2 ? 3 : 3U + bytes[1];
    return (bytes[0] & 3U) == 3 ? 5 : 1 + (bytes[0] & 3U);
  }

  void take(std::span<const std::uint8_t> item) {
    std::uint32_t value = 0;
    for (std::size_t i = 1; i < item.size(); ++i)
      value |= static_cast<std::uint32_t>(item[i]) << (8 * (i - 1));
    switch (item[0] & 0x0cU) {
      case 0x00:
        return takeMain(item[0] & 0xf0U, value);
      case 0x04:
        return takeGlobal(item[0] & 0xf0U, value);
      case 0x08:
        return takeLocal(item[0] & 0xf0U, range(item.size(), value));
    }
  }

  void takeMain(unsigned tag, std::uint32_t value) {
    if (tag == 0x80) takeInput(value);
    if (tag == 0xa0) takeCollection(value);
    if (tag == 0xc0 && !open_.empty()) open_.pop_back();
    named_.clear();
    low_.reset();
    high_.reset();
  }

  void takeGlobal(unsigned tag, std::uint32_t value) {
    if (tag == 0x00) now_.page = value;
    if (tag == 0x70) now_.size = value;
    if (tag == 0x80) now_.report = value;
    if (tag == 0x90) now_.count = value;
    if (tag == 0xa0) saved_.push_back(now_);
    if (tag != 0xb0 || saved_.empty()) return;
    now_ = saved_.back();
    saved_.pop_back();
  }

  void takeLocal(unsigned tag, const Named& usage) {
    if (tag == 0x00) named_.push_back(usage);
    if (tag == 0x10) low_ = usage;
    if (tag == 0x20) high_ = usage;
    if (!low_ || !high_) return;
    named_.push_back({low_->page ? low_->page : high_->page, low_->first, high_->last});
    low_.reset();
    high_.reset();
  }

  static Named range(std::size_t length, std::uint32_t usage) {
    if (length < 5) return {std::nullopt, usage, usage};
    return {usage >> 16U, usage & 0xffffU, usage & 0xffffU};
  }

  static bool touches(const Named& named, std::uint32_t first, std::uint32_t last) {
    return named.first <= last && first <= named.last;
  }

  [[nodiscard]] bool isSensitive(const Named& named, bool withPointer) const {
    const std::uint32_t page = named.page.value_or(now_.page);
    if (page == 0x07 || page == 0xf1d0) return true;
    if (page != 0x01) return false;
    return (withPointer && touches(named, 1, 1)) || touches(named, 2, 2) || touches(named, 6, 7) ||
           touches(named, 0x80, 0x8f) || touches(named, 0x97, 0xb7);
  }

  [[nodiscard]] bool isAnySensitive(bool withPointer) const {
    for (const Named& named : named_)
      if (isSensitive(named, withPointer)) return true;
    return false;
  }

  void takeCollection(std::uint32_t type) {
    const bool isApplication = (type & 0xffU) == 1;
    const bool isSensitive = isAnySensitive(isApplication || open_.empty());
    found_.isAnything = found_.isAnything || isSensitive;
    open_.push_back(isSensitive || (!open_.empty() && open_.back()));
  }

  void takeInput(std::uint32_t flags) {
    if (now_.size == 0 || now_.count == 0) return;
    const bool hasNamelessKeys =
        named_.empty() && (flags & 1U) == 0 && (now_.page == 0x07 || now_.page == 0xf1d0);
    if (!isAnySensitive(true) && !hasNamelessKeys && (open_.empty() || !open_.back())) return;
    found_.isAnything = true;
    found_.reports.insert(static_cast<std::uint8_t>(now_.report));
  }

  Globals now_;
  std::vector<Globals> saved_;
  std::vector<Named> named_;
  std::optional<Named> low_, high_;
  std::vector<bool> open_;  // for each open collection: it, or one that it lies in, is sensitive
  SensitiveReports found_;
};

inline SensitiveReports sensitiveReports(std::span<const std::uint8_t> descriptor) {
  return SensitiveReportsWalk::over(descriptor);
}

}  // namespace test
