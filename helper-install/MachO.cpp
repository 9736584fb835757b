#include "helper-install/MachO.h"

#include <array>
#include <concepts>
#include <cstring>
#include <vector>

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint32_t fatMagic = 0xCAFEBABE;
constexpr std::uint32_t fatMagicSwapped = 0xBEBAFECA;
constexpr std::uint32_t thinMagic32 = 0xFEEDFACE;
constexpr std::uint32_t thinMagic64 = 0xFEEDFACF;

constexpr std::uint64_t fatHeaderSize = 8;
constexpr std::uint64_t fatEntrySize = 20;
constexpr std::uint64_t thinHeaderSize32 = 28;
constexpr std::uint64_t thinHeaderSize64 = 32;

struct OutOfBounds {};

/// Reads that cannot leave the image. What lies outside ends the search of this image.
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
  explicit Name(std::string_view text) { text.copy(padded_.data(), width); }

  [[nodiscard]] bool isAt(Bytes image, std::uint64_t offset) const {
    const auto field = readAt<std::array<char, width>>(image, offset);
    return std::strncmp(field.data(), padded_.data(), width) == 0;
  }

 private:
  static constexpr std::size_t width = 16;
  std::array<char, width> padded_{};
};

/// Where the fields of a segment command and of its section records lie. The command decides, not
/// the file's header.
struct SegmentLayout {
  std::uint64_t sectionCountAt;
  std::uint64_t firstSectionAt;
  std::uint64_t sectionStride;
  std::uint64_t sizeAt;
  bool sizeIs64Bit;
  std::uint64_t offsetAt;
};
constexpr SegmentLayout segment32{48, 56, 68, 36, false, 40};
constexpr SegmentLayout segment64{64, 72, 80, 40, true, 48};

const SegmentLayout* segmentLayout(std::uint32_t command) {
  switch (command) {
    case 0x01:
      return &segment32;
    case 0x19:
      return &segment64;
    default:
      return nullptr;
  }
}

bool isSearchedArchitecture(std::uint32_t cpuType) {
  constexpr std::uint32_t x86 = 7, powerPC = 18, is64Bit = 0x01000000;
  return cpuType == x86 || cpuType == powerPC || cpuType == (x86 | is64Bit) ||
         cpuType == (powerPC | is64Bit);
}

/// One search. The steps it may take are bounded by the image's length: a file whose structures do
/// not overlap needs at most one for each eight bytes, so the bound is out of reach for it, and a
/// hostile file ends in linear time.
class SectionSearch {
 public:
  SectionSearch(Bytes image, std::string_view segment, std::string_view section)
      : segment_(segment), section_(section), stepsLeft_(image.size() + 64) {}

  std::optional<Bytes> run(Bytes image) {
    // Slices still to be gone on with, innermost last: nesting costs heap, not stack.
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

  /// Searches a thin image, or begins the walk over a fat one.
  std::optional<Bytes> enter(Bytes image, std::vector<FatWalk>& walks) try {
    switch (readLittleEndian<std::uint32_t>(image, 0)) {
      case fatMagic:
      case fatMagicSwapped:
        walks.push_back({image, readBigEndian32(image, 4), 0});
        return std::nullopt;
      case thinMagic32:
        return searchThin(image, thinHeaderSize32);
      case thinMagic64:
        return searchThin(image, thinHeaderSize64);
      default:
        return std::nullopt;
    }
  } catch (const OutOfBounds&) {
    return std::nullopt;
  }

  /// The next slice that is to be searched; nothing when the entries are used up or one cannot be
  /// read.
  std::optional<Bytes> nextSlice(FatWalk& walk) try {
    while (walk.next < walk.count && takeStep()) {
      const std::uint64_t entry = fatHeaderSize + fatEntrySize * walk.next++;
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
      // The same command again, up to 2^32 - 1 times: it will not answer otherwise than it just
      // did.
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
