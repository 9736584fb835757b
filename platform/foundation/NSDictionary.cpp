#include "platform/foundation/NSDictionary.h"

#include <bit>
#include <limits>
#include <stdexcept>

#include "platform/foundation/NSString.h"
#include "platform/foundation/Text.h"

namespace platform {
namespace {

using Entries = std::vector<NSDictionary::Entry>;
using Buckets = std::vector<std::uint32_t>;

/// The bucket where the search for a hash starts; hashes of small numbers differ in few bits only,
/// hence the mixing.
std::size_t firstBucket(std::size_t hash, std::size_t bucketCount) {
  constexpr std::uint64_t kGoldenRatio = 0x9E3779B97F4A7C15;
  return static_cast<std::size_t>((hash * kGoldenRatio) >> 32) & (bucketCount - 1);
}

/// The bucket that holds the entry for which `matches` is true, or the free one where it would go.
template <class Matches>
std::size_t findBucket(const Entries& entries, const Buckets& buckets, std::size_t hash,
                       const Matches& matches) {
  std::size_t bucket = firstBucket(hash, buckets.size());
  while (buckets[bucket] != 0 && !matches(*entries[buckets[bucket] - 1].first)) {
    bucket = (bucket + 1) & (buckets.size() - 1);
  }
  return bucket;
}

template <class Matches>
std::shared_ptr<NSObject> find(const Entries& entries, const Buckets& buckets, std::size_t hash,
                               const Matches& matches) {
  if (entries.empty()) return nullptr;
  const std::uint32_t entry = buckets[findBucket(entries, buckets, hash, matches)];
  return entry == 0 ? nullptr : entries[entry - 1].second;
}

}  // namespace

const NSClass& NSDictionary::classObject() {
  static const NSClass object{"NSDictionary", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSDictionary> NSDictionary::dictionary() {
  return dictionaryWithEntries({});
}

std::shared_ptr<NSDictionary> NSDictionary::dictionaryWithEntries(Entries given) {
  if (given.size() > std::numeric_limits<std::uint32_t>::max() / 4) {
    throw std::length_error("too many entries for a dictionary");
  }
  Entries entries;
  entries.reserve(given.size());
  Buckets buckets(given.empty() ? 0 : std::bit_ceil(given.size() * 2));
  for (Entry& entry : given) {
    if (!entry.first || !entry.second) {
      throw std::invalid_argument("a dictionary cannot hold null");
    }
    const auto equal = [&](const NSObject& key) { return entry.first->isEqual(&key); };
    std::uint32_t& bucket = buckets[findBucket(entries, buckets, entry.first->hash(), equal)];
    if (bucket != 0) {
      entries[bucket - 1].second = std::move(entry.second);
    } else {
      entries.push_back(std::move(entry));
      bucket = static_cast<std::uint32_t>(entries.size());
    }
  }
  return std::make_shared<NSDictionary>(std::move(entries), std::move(buckets));
}

std::shared_ptr<NSObject> NSDictionary::objectForKey(const NSObject& key) const {
  return find(entries_, buckets_, key.hash(),
              [&](const NSObject& candidate) { return key.isEqual(&candidate); });
}

std::shared_ptr<NSObject> NSDictionary::objectForKey(std::string_view key) const {
  return find(entries_, buckets_, hashOfText(key), [&](const NSObject& candidate) {
    const auto* string = dynamic_cast<const NSString*>(&candidate);
    return string != nullptr && string->UTF8String() == key;
  });
}

bool NSDictionary::isEqual(const NSObject* other) const {
  if (this == other) return true;
  const auto* dictionary = dynamic_cast<const NSDictionary*>(other);
  if (dictionary == nullptr || dictionary->count() != count()) return false;
  for (const auto& [key, value] : entries_) {
    const auto theirs = dictionary->objectForKey(*key);
    if (!theirs || !value->isEqual(theirs)) return false;
  }
  return true;
}

std::size_t NSDictionary::hash() const {
  std::size_t sum = count();  // the order of entries does not matter to equality
  for (const auto& [key, value] : entries_) sum += key->hash() * 31 + value->hash();
  return sum;
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
