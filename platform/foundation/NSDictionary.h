// SPDX-License-Identifier: Apache-2.0

// Immutable maps from object to object.
//
// Threading, Ownership, Errors: as in NSObject.h. A key must not change while it is in a
//   dictionary.
// Order: enumeration follows insertion order; of two equal keys, the later value wins and takes the
//   earlier position.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class WLHID_EXPORT NSDictionary final : public NSObject {
 public:
  using Entry = std::pair<std::shared_ptr<NSObject>, std::shared_ptr<NSObject>>;

  static const NSClass& classObject();
  static std::shared_ptr<NSDictionary> dictionary();
  /// Throws std::invalid_argument for a null key or value.
  static std::shared_ptr<NSDictionary> dictionaryWithEntries(std::vector<Entry> entries);

  [[nodiscard]] std::size_t count() const { return entries_.size(); }
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  /// The value of an equal key, or null. The number of comparisons is logarithmic in count(), even
  /// for hostile keys.
  [[nodiscard]] std::shared_ptr<NSObject> objectForKey(const NSObject& key) const;
  [[nodiscard]] std::shared_ptr<NSObject> objectForKey(std::string_view key) const;

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  /// "{\n    key = value;\n}"
  [[nodiscard]] std::string description() const override;
  [[nodiscard]] std::string descriptionWithIndent(std::size_t indent) const override;

  /// Use the factories: they ensure that keys are unique and nothing is null.
  NSDictionary(std::vector<Entry> entries, std::vector<std::uint32_t> byKey)
      : entries_(std::move(entries)), byKey_(std::move(byKey)) {}

 protected:
  /// Dictionaries are equal if they have the same count and equal values for equal keys.
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  [[nodiscard]] const Entry& inOrderOfKeys(std::size_t i) const { return entries_[byKey_[i]]; }

  const std::vector<Entry> entries_;
  const std::vector<std::uint32_t> byKey_;  // indices into entries_ in ascending order of keys
};

}  // namespace platform
