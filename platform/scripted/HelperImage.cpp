// SPDX-License-Identifier: Apache-2.0

#include "platform/scripted/HelperImage.h"

#include <cstddef>

namespace platform {

namespace {

constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kSegmentCommandSize = 72;
constexpr std::size_t kSectionSize = 80;
constexpr std::size_t kContentOffset = kHeaderSize + kSegmentCommandSize + kSectionSize;

/// Writes little-endian fields into a buffer that is large enough.
class Writer {
 public:
  explicit Writer(std::vector<std::uint8_t>& bytes) : bytes_(bytes) {}

  void number(std::size_t offset, std::uint64_t value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i)
      bytes_[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
  void text(std::size_t offset, std::string_view value) {
    for (std::size_t i = 0; i < value.size(); ++i)
      bytes_[offset + i] = static_cast<std::uint8_t>(value[i]);
  }

 private:
  std::vector<std::uint8_t>& bytes_;
};

void writeHeader(Writer& image) {
  image.number(0, 0xFEEDFACF, 4);
  image.number(4, 0x01000007, 4);  // x86_64
  image.number(12, 2, 4);          // an executable
  image.number(16, 1, 4);          // one load command
  image.number(20, kSegmentCommandSize + kSectionSize, 4);
}

void writeSegment(Writer& image, std::size_t fileSize) {
  image.number(kHeaderSize, 0x19, 4);
  image.number(kHeaderSize + 4, kSegmentCommandSize + kSectionSize, 4);
  image.text(kHeaderSize + 8, "__TEXT");
  image.number(kHeaderSize + 48, fileSize, 8);
  image.number(kHeaderSize + 64, 1, 4);  // one section
}

void writeSection(Writer& image, std::size_t size) {
  constexpr std::size_t section = kHeaderSize + kSegmentCommandSize;
  image.text(section, "__info_plist");
  image.text(section + 16, "__TEXT");
  image.number(section + 40, size, 8);
  image.number(section + 48, kContentOffset, 4);
}

}  // namespace

std::vector<std::uint8_t> helperImageWithInfoPlist(std::string_view infoPlist) {
  std::vector<std::uint8_t> bytes(kContentOffset + infoPlist.size());
  Writer image(bytes);
  writeHeader(image);
  writeSegment(image, bytes.size());
  writeSection(image, infoPlist.size());
  image.text(kContentOffset, infoPlist);
  return bytes;
}

std::string infoPlistWithVersion(std::string_view version) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
         "version=\"1.0\"><dict><key>CFBundleVersion</key><string>" +
         std::string(version) + "</string></dict></plist>\n";
}

}  // namespace platform
