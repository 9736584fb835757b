// SPDX-License-Identifier: Apache-2.0

#include "helper-install/MachO.h"

#include <array>
#include <concepts>
#include <cstring>
#include <vector>

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint32_t kFatMagic = 0xCAFEBABE;
constexpr std::uint32_t kFatMagicSwapped = 0xBEBAFECA;
constexpr std::uint32_t kThinMagic32 = 0xFEEDFACE;
constexpr std::uint32_t kThinMagic64 = 0xFEEDFACF;

constexpr std::uint64_t kFatHeaderSize = 8;
constexpr std::uint64_t kFatEntrySize = 20;
constexpr std::uint64_t kThinHeaderSize32 = 28;
constexpr std::uint64_t kThinHeaderSize64 = 32;

struct OutOfBounds {};

/// A bounds-checked read. One outside the image ends the search of that image.
template <class T>
T readAt(Bytes image, std::uint64_t offset) {
  if (offset > image.size() || image.size() - offset < sizeof(T)) throw OutOfBounds{};
  T value;
  std::memcpy(&value, image.data() + offset, sizeof value);
  return value;
}

/// The fields of a thin image, whatever processor reads them.
template <std::unsigned_integral T>
T readLittleEndian(Bytes image, std::uint64_t offset) {
  const auto bytes = readAt<std::array<std::uint8_t, sizeof(T)>>(image, offset);
  T value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) value = static_cast<T>(value << 8 | bytes.at(i));
  return value;
}

/// The fields of a fat header.
std::uint32_t readBigEndian32(Bytes image, std::uint64_t offset) {
  return __builtin_bswap32(readLittleEndian<std::uint32_t>(image, offset));
}

Bytes subrange(Bytes image, std::uint64_t offset, std::uint64_t size) {
  if (offset > image.size() || image.size() - offset < size) throw OutOfBounds{};
  return image.subspan(offset, size);
}

/// A segment or section name as the format stores it: 16 characters, NUL-terminated only when
/// shorter.
class Name {
 public:
  explicit Name(std::string_view text) { text.copy(padded_.data(), kWidth); }

  [[nodiscard]] bool isAt(Bytes image, std::uint64_t offset) const {
    const auto field = readAt<std::array<char, kWidth>>(image, offset);
    return std::strncmp(field.data(), padded_.data(), kWidth) == 0;
  }

 private:
  static constexpr std::size_t kWidth = 16;
  std::array<char, kWidth> padded_{};
};

/// The offsets of the fields in a segment command and its section records. The command determines
/// the layout, not the file's header.
struct SegmentLayout {
  std::uint64_t sectionCountAt;
  std::uint64_t firstSectionAt;
  std::uint64_t sectionStride;
  std::uint64_t sizeAt;
  bool sizeIs64Bit;
  std::uint64_t offsetAt;
};
constexpr SegmentLayout kSegment32{48, 56, 68, 36, false, 40};
constexpr SegmentLayout kSegment64{64, 72, 80, 40, true, 48};

const SegmentLayout* segmentLayout(std::uint32_t command) {
  switch (command) {
    case 0x01:
      return &kSegment32;
    case 0x19:
      return &kSegment64;
    default:
      return nullptr;
  }
}

bool isSearchedArchitecture(std::uint32_t cpuType) {
  constexpr std::uint32_t x86 = 7, powerPC = 18, is64Bit = 0x01000000;
  return cpuType == x86 || cpuType == powerPC || cpuType == (x86 | is64Bit) ||
         cpuType == (powerPC | is64Bit);
}

/// One search. The image's length limits its steps: a file whose structures do not overlap needs at
/// most one step per eight bytes, so it never reaches the limit, and the search of a hostile file
/// ends in linear time.
class SectionSearch {
 public:
  SectionSearch(Bytes image, std::string_view segment, std::string_view section)
      : segment_(segment), section_(section), stepsLeft_(image.size() + 64) {}

  std::optional<Bytes> run(Bytes image) {
    // The fat images being walked, innermost last: nesting costs heap, not stack.
    std::vector<FatWalk> walks;
    std::optional<Bytes> found = enter(image, walks);
    while (!found && !walks.empty() && !isExhausted()) {
      if (const auto slice = nextSlice(walks.back())) {
        found = enter(*slice, walks);
      } else {
        walks.pop_back();
      }
    }
    return found;
  }

 private:
  struct FatWalk {
    Bytes image;
    std::uint32_t count;
    std::uint32_t next;
  };

  bool isExhausted() const { return stepsLeft_ == 0; }
  bool takeStep() { return !isExhausted() && stepsLeft_-- > 0; }

  /// Searches a thin image, or starts walking a fat one.
  std::optional<Bytes> enter(Bytes image, std::vector<FatWalk>& walks) try {
    switch (readLittleEndian<std::uint32_t>(image, 0)) {
      case kFatMagic:
      case kFatMagicSwapped:
        walks.push_back({image, readBigEndian32(image, 4), 0});
        return std::nullopt;
      case kThinMagic32:
        return searchThin(image, kThinHeaderSize32);
      case kThinMagic64:
        return searchThin(image, kThinHeaderSize64);
      default:
        return std::nullopt;
    }
  } catch (const OutOfBounds&) {
    return std::nullopt;
  }

  /// The next slice to search; nothing after the last entry or if one cannot be read.
  std::optional<Bytes> nextSlice(FatWalk& walk) try {
    while (walk.next < walk.count && takeStep()) {
      const std::uint64_t entry = kFatHeaderSize + kFatEntrySize * walk.next++;
      if (!isSearchedArchitecture(readBigEndian32(walk.image, entry))) continue;
      return subrange(walk.image, readBigEndian32(walk.image, entry + 8),
                      readBigEndian32(walk.image, entry + 12));
    }
    return std::nullopt;
  } catch (const OutOfBounds&) {
    return std::nullopt;
  }

  std::optional<Bytes> searchThin(Bytes image, std::uint64_t firstCommandAt) {
    const auto count = readLittleEndian<std::uint32_t>(image, 16);
    std::uint64_t at = firstCommandAt;
    for (std::uint32_t k = 0; k < count && at < image.size() && takeStep(); ++k) {
      const auto command = readLittleEndian<std::uint32_t>(image, at);
      const auto distance = readLittleEndian<std::uint32_t>(image, at + 4);
      if (const auto* layout = segmentLayout(command)) {
        if (const auto found = searchSegment(image, at, *layout)) return found;
      }
      // The same command again, up to 2^32 - 1 times: the result would not change.
      if (distance == 0) return std::nullopt;
      at += distance;
    }
    return std::nullopt;
  }

  std::optional<Bytes> searchSegment(Bytes image, std::uint64_t at, const SegmentLayout& layout) {
    const auto count = readLittleEndian<std::uint32_t>(image, at + layout.sectionCountAt);
    std::uint64_t record = at + layout.firstSectionAt;
    for (std::uint32_t i = 0; i < count && takeStep(); ++i, record += layout.sectionStride) {
      const std::uint64_t size =
          layout.sizeIs64Bit ? readLittleEndian<std::uint64_t>(image, record + layout.sizeAt)
                             : readLittleEndian<std::uint32_t>(image, record + layout.sizeAt);
      if (size == 0) continue;
      const auto offset = readLittleEndian<std::uint32_t>(image, record + layout.offsetAt);
      if (offset == 0) continue;
      if (!section_.isAt(image, record) || !segment_.isAt(image, record + 16)) continue;
      return subrange(image, offset, size);
    }
    return std::nullopt;
  }

  const Name segment_;
  const Name section_;
  std::uint64_t stepsLeft_;
};

}  // namespace

std::optional<std::span<const std::uint8_t>> findMachOSection(std::span<const std::uint8_t> image,
                                                              std::string_view segment,
                                                              std::string_view section) {
  return SectionSearch(image, segment, section).run(image);
}
