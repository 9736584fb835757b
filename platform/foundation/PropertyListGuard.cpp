#include <optional>
#include <string_view>
#include <vector>

#include "platform/foundation/PropertyListCoding.h"

namespace platform {
namespace {

constexpr std::string_view kBinaryMagic = "bplist00";
constexpr std::size_t kTrailerBytes = 32;

// Walks a binary list's objects from the top without making any of them.
class BinaryWalk {
 public:
  explicit BinaryWalk(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::string fault() {
    if (bytes_.size() < kBinaryMagic.size() + kTrailerBytes) return "shorter than its trailer";
    if (!readTrailer()) return "a trailer that does not fit the data";
    enter(top_);
    while (fault_.empty() && !open_.empty()) step();
    return fault_;
  }

 private:
  struct Container {
    std::size_t references;  // where the next reference stands
    std::uint64_t left;      // how many are still to be followed
  };

  [[nodiscard]] std::optional<std::uint64_t> integerAt(std::size_t offset,
                                                       std::size_t width) const {
    if (width == 0 || width > 8 || offset > bytes_.size() || width > bytes_.size() - offset)
      return std::nullopt;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = value << 8 | bytes_[offset + i];
    return value;
  }

  bool readTrailer() {
    const std::size_t trailer = bytes_.size() - kTrailerBytes;
    offsetWidth_ = bytes_[trailer + 6];
    referenceWidth_ = bytes_[trailer + 7];
    objects_ = *integerAt(trailer + 8, 8);
    top_ = *integerAt(trailer + 16, 8);
    table_ = *integerAt(trailer + 24, 8);
    return offsetWidth_ >= 1 && offsetWidth_ <= 8 && referenceWidth_ >= 1 && referenceWidth_ <= 8 &&
           objects_ >= 1 && top_ < objects_ && table_ >= kBinaryMagic.size() && table_ <= trailer &&
           objects_ <= (trailer - table_) / offsetWidth_;
  }

  void enter(std::uint64_t object) {
    if (object >= objects_) return fail("a reference to an object that is not there");
    if (++entered_ > kPropertyListObjects) return fail("more objects than are sensible");
    const auto offset = integerAt(table_ + object * offsetWidth_, offsetWidth_);
    if (!offset || *offset < kBinaryMagic.size() || *offset >= table_)
      return fail("an object outside the data");
    enterAt(static_cast<std::size_t>(*offset));
  }

  void enterAt(std::size_t offset) {
    const std::uint8_t kind = bytes_[offset] >> 4;
    const std::uint8_t low = bytes_[offset] & 0xF;
    switch (kind) {
      case 0x0:
        return low == 0x8 || low == 0x9 ? void() : fail("an object of an unknown kind");
      case 0x1:
        return low <= 4 ? need(offset + 1, std::uint64_t{1} << low)
                        : fail("an integer of an unknown width");
      case 0x2:
        return low == 2 || low == 3 ? need(offset + 1, std::uint64_t{1} << low)
                                    : fail("a real of an unknown width");
      case 0x3:
        return low == 3 ? need(offset + 1, 8) : fail("a date of an unknown width");
      case 0x4:
      case 0x5:
        return sized(offset, low, 1, false);
      case 0x6:
        return sized(offset, low, 2, false);
      case 0xA:
        return sized(offset, low, referenceWidth_, true);
      case 0xD:
        return sized(offset, low, 2 * referenceWidth_, true);
      default:
        return fail("an object of an unknown kind");
    }
  }

  void sized(std::size_t offset, std::uint8_t low, std::size_t unit, bool container) {
    std::uint64_t count = low;
    std::size_t body = offset + 1;
    if (low == 0xF) {
      if (body >= table_ || bytes_[body] >> 4 != 0x1 || (bytes_[body] & 0xF) > 3)
        return fail("a count that is no integer");
      const std::size_t width = std::size_t{1} << (bytes_[body] & 0xF);
      const auto counted = integerAt(body + 1, width);
      if (!counted) return fail("a count outside the data");
      count = *counted;
      body += 1 + width;
    }
    if (body > table_ || count > (table_ - body) / unit)
      return fail("an object that runs past the data");
    if (!container) return;
    if (open_.size() >= kPropertyListDepth) return fail("nested too deeply");
    open_.push_back({body, count * (unit / referenceWidth_)});
  }

  void need(std::size_t offset, std::uint64_t length) {
    if (offset > table_ || length > table_ - offset) fail("an object that runs past the data");
  }

  void step() {
    Container& container = open_.back();
    if (container.left == 0) {
      open_.pop_back();
      return;
    }
    const auto reference = integerAt(container.references, referenceWidth_);
    container.references += referenceWidth_;
    --container.left;
    enter(*reference);  // inside the data: sized() has checked the whole run
  }

  void fail(const char* why) {
    if (fault_.empty()) fault_ = why;
  }

  const std::span<const std::uint8_t> bytes_;
  std::size_t offsetWidth_ = 0;
  std::size_t referenceWidth_ = 0;
  std::uint64_t objects_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t table_ = 0;
  std::size_t entered_ = 0;
  std::vector<Container> open_;
  std::string fault_;
};

// Where a comment, a CDATA section or a processing instruction ends, for a "<" that begins one;
// else `position`.
std::size_t behindNonElement(std::string_view text, std::size_t position) {
  static constexpr struct {
    std::string_view begin, end;
  } kinds[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
  for (const auto& kind : kinds) {
    if (!text.substr(position).starts_with(kind.begin)) continue;
    const auto end = text.find(kind.end, position + kind.begin.size());
    return end == std::string_view::npos ? text.size() : end + kind.end.size();
  }
  return position;
}

bool isContainerName(std::string_view rest) {
  for (const std::string_view name : {"dict", "array"}) {
    if (rest.starts_with(name) && rest.size() > name.size() &&
        std::string_view("> \t\r\n").find(rest[name.size()]) != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool isBinaryPropertyList(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= kBinaryMagic.size() &&
         std::string_view(reinterpret_cast<const char*>(bytes.data()), kBinaryMagic.size()) ==
             kBinaryMagic;
}

std::string faultOfBinaryPropertyList(std::span<const std::uint8_t> bytes) {
  return BinaryWalk(bytes).fault();
}

std::string faultOfXMLPropertyList(std::string_view text) {
  std::size_t depth = 0;
  for (std::size_t at = text.find('<'); at < text.size(); at = text.find('<', at)) {
    if (const std::size_t behind = behindNonElement(text, at); behind != at) {
      at = behind;
      continue;
    }
    const std::string_view rest = text.substr(at + 1);
    if (isContainerName(rest)) {
      if (++depth > kPropertyListDepth) return "nested too deeply";
    } else if (rest.starts_with('/') && isContainerName(rest.substr(1)) && depth > 0) {
      --depth;
    }
    ++at;
  }
  return {};
}

}  // namespace platform
