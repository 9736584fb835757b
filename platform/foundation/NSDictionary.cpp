// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSDictionary.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <stdexcept>

#include "platform/foundation/NSString.h"

namespace platform {
namespace {

using Entries = std::vector<NSDictionary::Entry>;
using Indices = std::vector<std::uint32_t>;

void checkEntries(const Entries& entries) {
  if (entries.size() > std::numeric_limits<std::uint32_t>::max())
    throw std::length_error("too many entries for a dictionary");
  for (const auto& [key, value] : entries)
    if (!key || !value) throw std::invalid_argument("a dictionary cannot hold null");
}

/// Equal keys stay in order of insertion.
Indices indicesByKey(const Entries& entries) {
  Indices indices(entries.size());
  std::iota(indices.begin(), indices.end(), 0U);
  std::stable_sort(indices.begin(), indices.end(), [&](std::uint32_t a, std::uint32_t b) {
    return NSObject::compare(entries[a].first.get(), entries[b].first.get()) < 0;
  });
  return indices;
}

/// Of equal keys, leaves the first in `byKey`, with the value of the last; sets the other keys to
/// null.
void mergeEqualKeys(Entries& entries, Indices& byKey) {
  std::size_t kept = 0;
  for (const std::uint32_t each : byKey) {
    if (kept > 0 && entries[byKey[kept - 1]].first->isEqual(entries[each].first)) {
      entries[byKey[kept - 1]].second = std::move(entries[each].second);
      entries[each].first = nullptr;
    } else {
      byKey[kept++] = each;
    }
  }
  byKey.resize(kept);
}

/// Removes the entries that mergeEqualKeys left without a key.
void dropMergedEntries(Entries& entries, Indices& byKey) {
  Indices places(entries.size());
  std::uint32_t next = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!entries[i].first) continue;
    if (i != next) entries[next] = std::move(entries[i]);
    places[i] = next++;
  }
  entries.resize(next);
  for (std::uint32_t& each : byKey) each = places[each];
}

}  // namespace

const NSClass& NSDictionary::classObject() {
  static const NSClass object{"NSDictionary", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSDictionary> NSDictionary::dictionary() {
  return dictionaryWithEntries({});
}

std::shared_ptr<NSDictionary> NSDictionary::dictionaryWithEntries(Entries entries) {
  checkEntries(entries);
  Indices byKey = indicesByKey(entries);
  mergeEqualKeys(entries, byKey);
  if (byKey.size() < entries.size()) dropMergedEntries(entries, byKey);
  return std::make_shared<NSDictionary>(std::move(entries), std::move(byKey));
}

std::shared_ptr<NSObject> NSDictionary::objectForKey(const NSObject& key) const {
  const auto found = std::lower_bound(byKey_.begin(), byKey_.end(), &key,
                                      [&](std::uint32_t index, const NSObject* wanted) {
                                        return compare(entries_[index].first.get(), wanted) < 0;
                                      });
  if (found == byKey_.end() || !key.isEqual(entries_[*found].first)) return nullptr;
  return entries_[*found].second;
}

std::shared_ptr<NSObject> NSDictionary::objectForKey(std::string_view key) const {
  return objectForKey(NSString(NSString::Validated{}, std::string(key)));
}

std::strong_ordering NSDictionary::compareValue(const NSObject& other) const {
  const auto& dictionary = static_cast<const NSDictionary&>(other);
  if (count() != dictionary.count()) return count() <=> dictionary.count();
  for (std::size_t i = 0; i < count(); ++i) {
    const auto& [key, value] = inOrderOfKeys(i);
    const auto& [theirKey, theirValue] = dictionary.inOrderOfKeys(i);
    const auto keys = compare(key.get(), theirKey.get());
    const auto order = keys != 0 ? keys : compare(value.get(), theirValue.get());
    if (order != 0) return order;
  }
  return std::strong_ordering::equal;
}

std::string NSDictionary::description() const {
  return descriptionWithIndent(0);
}

std::string NSDictionary::descriptionWithIndent(std::size_t indent) const {
  const std::string outer(indent * 4, ' ');
  std::string text = outer + "{\n";
  for (const auto& [key, value] : entries_) {
    text += outer + "    " + key->descriptionWithIndent(indent + 1) + " = " +
            value->descriptionWithIndent(indent + 1) + ";\n";
  }
  return text + outer + "}";
}

}  // namespace platform
