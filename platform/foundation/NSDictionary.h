// Immutable maps from object to object.
//
// Threading, Ownership, Errors, Order: as in NSObject.h. Enumeration goes in order of insertion; of
//   two equal keys the later value wins and keeps the earlier place.
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSDictionary final : public NSObject {
 public:
  using Entry = std::pair<std::shared_ptr<NSObject>, std::shared_ptr<NSObject>>;

  static const NSClass& classObject();
  static std::shared_ptr<NSDictionary> dictionary();
  /// Throws std::invalid_argument for a null key or value.
  static std::shared_ptr<NSDictionary> dictionaryWithEntries(std::vector<Entry> entries);

  [[nodiscard]] std::size_t count() const { return entries_.size(); }
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  /// The value of an equal key, or null. Constant time on average.
  [[nodiscard]] std::shared_ptr<NSObject> objectForKey(const NSObject& key) const;
  [[nodiscard]] std::shared_ptr<NSObject> objectForKey(std::string_view key) const;

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  using NSObject::isEqual;
  [[nodiscard]] bool isEqual(const NSObject* other) const override;
  [[nodiscard]] std::size_t hash() const override;
  /// "{\n    key = value;\n}"
  [[nodiscard]] std::string description() const override;
  [[nodiscard]] std::string descriptionWithIndent(std::size_t indent) const override;

  /// Use the factories: keys are unique and nothing is null.
  NSDictionary(std::vector<Entry> entries, std::vector<std::uint32_t> buckets)
      : entries_(std::move(entries)), buckets_(std::move(buckets)) {}

 private:
  const std::vector<Entry> entries_;
  const std::vector<std::uint32_t>
      buckets_;  // open addressing: index into entries_ plus one, 0 where free
};

}  // namespace platform
