// SPDX-License-Identifier: Apache-2.0

// Mach-O files for tests, byte by byte, well-formed or not.
#pragma once

#include <concepts>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace machotest {

using Buffer = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kMagic32 = 0xFEEDFACE;
inline constexpr std::uint32_t kMagic64 = 0xFEEDFACF;
inline constexpr std::uint32_t kX86 = 7;
inline constexpr std::uint32_t kARM = 12;
inline constexpr std::uint32_t kPowerPC = 18;
inline constexpr std::uint32_t kX86_64 = 0x01000007;
inline constexpr std::uint32_t kARM64 = 0x0100000C;
inline constexpr std::uint32_t kPowerPC64 = 0x01000012;

/// Little-endian, whatever processor runs the test.
template <std::unsigned_integral T>
void putLittle(Buffer& out, std::size_t at, T value) {
  if (out.size() < at + sizeof value) out.resize(at + sizeof value);
  for (std::size_t i = 0; i < sizeof value; ++i)
    out[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}
inline void put32(Buffer& out, std::size_t at, std::uint32_t value) {
  putLittle(out, at, value);
}
inline void put64(Buffer& out, std::size_t at, std::uint64_t value) {
  putLittle(out, at, value);
}
inline void putBig32(Buffer& out, std::size_t at, std::uint32_t value) {
  put32(out, at, __builtin_bswap32(value));
}
inline void putName(Buffer& out, std::size_t at, std::string_view name) {
  if (out.size() < at + 16) out.resize(at + 16);
  std::memcpy(out.data() + at, name.data(), std::min<std::size_t>(name.size(), 16));
}
inline Buffer bytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

struct Section {
  std::string section = "__info_plist";
  std::string segment = "__TEXT";
  std::uint64_t size = 0;
  std::uint32_t offset = 0;
};

/// One load command. A `segment` command carries section records; `cmdsize` 0 means its actual
/// size.
struct Command {
  std::uint32_t cmd = 0x19;
  std::vector<Section> sections;
  std::uint32_t cmdsize = 0;
  bool writeZeroSize = false;
};

inline Buffer commandBytes(const Command& command) {
  Buffer out;
  const bool is64 = command.cmd == 0x19;
  const bool isSegment = is64 || command.cmd == 0x01;
  out.resize(isSegment ? (is64 ? 72 : 56) : 16);
  if (isSegment) {
    put32(out, is64 ? 64 : 48, static_cast<std::uint32_t>(command.sections.size()));
    for (const auto& section : command.sections) {
      const std::size_t at = out.size();
      out.resize(at + (is64 ? 80 : 68));
      putName(out, at, section.section);
      putName(out, at + 16, section.segment);
      if (is64) {
        put64(out, at + 40, section.size);
        put32(out, at + 48, section.offset);
      } else {
        put32(out, at + 36, static_cast<std::uint32_t>(section.size));
        put32(out, at + 40, section.offset);
      }
    }
  }
  put32(out, 0, command.cmd);
  const auto natural = static_cast<std::uint32_t>(out.size());
  put32(out, 4, command.writeZeroSize ? 0 : (command.cmdsize != 0 ? command.cmdsize : natural));
  return out;
}

/// A thin image: header, commands, and `payload` at offset `payloadAt`.
inline Buffer thin(std::uint32_t magic, const std::vector<Command>& commands,
                   std::string_view payload = {}, std::size_t payloadAt = 0x400,
                   std::int64_t ncmds = -1) {
  Buffer out(magic == kMagic64 ? 32 : 28);
  put32(out, 0, magic);
  put32(
      out, 16,
      ncmds < 0 ? static_cast<std::uint32_t>(commands.size()) : static_cast<std::uint32_t>(ncmds));
  for (const auto& command : commands) {
    const Buffer bytes = commandBytes(command);
    out.insert(out.end(), bytes.begin(), bytes.end());
  }
  if (!payload.empty()) {
    if (out.size() < payloadAt + payload.size()) out.resize(payloadAt + payload.size());
    std::memcpy(out.data() + payloadAt, payload.data(), payload.size());
  }
  return out;
}

/// A typical valid image: one segment with the section, which contains `payload`.
inline Buffer thinWithPlist(std::string_view payload, std::uint32_t magic = kMagic64) {
  return thin(
      magic,
      {{magic == kMagic64 ? 0x19U : 0x01U, {{"__info_plist", "__TEXT", payload.size(), 0x400}}}},
      payload);
}

struct Slice {
  std::uint32_t cpu;
  Buffer bytes;
};

inline Buffer fat(const std::vector<Slice>& slices, std::uint32_t magic = 0xBEBAFECA) {
  Buffer out(8 + 20 * slices.size());
  put32(out, 0, magic);
  putBig32(out, 4, static_cast<std::uint32_t>(slices.size()));
  for (std::size_t i = 0; i < slices.size(); ++i) {
    const std::size_t entry = 8 + 20 * i;
    const std::size_t at = (out.size() + 15) / 16 * 16;
    putBig32(out, entry, slices[i].cpu);
    putBig32(out, entry + 8, static_cast<std::uint32_t>(at));
    putBig32(out, entry + 12, static_cast<std::uint32_t>(slices[i].bytes.size()));
    out.resize(at);
    out.insert(out.end(), slices[i].bytes.begin(), slices[i].bytes.end());
  }
  return out;
}

}  // namespace machotest
