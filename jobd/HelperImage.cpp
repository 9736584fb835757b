// SPDX-License-Identifier: Apache-2.0

#include "jobd/HelperImage.h"

#include <elf.h>

#include <cstring>
#include <memory>

#include "helper-install/MachO.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/PrintableText.h"
#include "platform/services/JobFile.h"
#include "platform/services/ServiceError.h"

namespace jobd {
namespace {

using platform::NSDictionary;
using platform::NSString;
using platform::objectCast;

#if defined(__x86_64__)
constexpr std::uint16_t kThisMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr std::uint16_t kThisMachine = EM_AARCH64;
#elif defined(__riscv)
constexpr std::uint16_t kThisMachine = EM_RISCV;
#elif defined(__s390x__)
constexpr std::uint16_t kThisMachine = EM_S390;
#else
#error "name the ELF machine number of this processor"
#endif

[[noreturn]] void refuse(const std::string& text) {
  throw platform::ServiceError(platform::ServiceErrorCode::InvalidImage, text);
}

std::span<const std::uint8_t> section(std::span<const std::uint8_t> image, std::string_view segment,
                                      std::string_view name) {
  const auto found = findMachOSection(image, segment, name);
  if (!found) refuse("the helper has no section " + std::string(segment) + "," + std::string(name));
  return *found;
}

std::shared_ptr<NSDictionary> propertyList(std::span<const std::uint8_t> image,
                                           std::string_view name) {
  const auto data = platform::NSData::dataWithBytes(section(image, "__TEXT", name));
  auto dictionary = objectCast<NSDictionary>(
      platform::NSPropertyListSerialization::propertyListWithData_options_format_error(
          data, 0, nullptr, nullptr));
  if (!dictionary)
    refuse("the helper's " + std::string(name) + " is not a property list with a dictionary");
  return dictionary;
}

std::string textFor(const NSDictionary& dictionary, std::string_view key) {
  const auto value = objectCast<NSString>(dictionary.objectForKey(key));
  return value ? value->UTF8String() : std::string();
}

void expectLabel(const std::string& found, std::string_view key, std::string_view label) {
  if (found != label)
    refuse("the helper's " + std::string(key) + " is \"" + platform::printableLine(found, 200) +
           "\", not \"" + std::string(label) + "\"");
}

}  // namespace

std::span<const std::uint8_t> programOfImage(std::span<const std::uint8_t> image) {
  const auto program = section(image, "__ELF", "__program");
  Elf64_Ehdr header{};
  if (program.size() < sizeof header) refuse("the helper's program is too short");
  std::memcpy(&header, program.data(), sizeof header);
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) {
    refuse("the helper's program is not a 64-bit ELF executable");
  }
  if (header.e_machine != kThisMachine)
    refuse("the helper's program is for another kind of processor");
  return program;
}

HelperImage parseHelperImage(std::span<const std::uint8_t> image, std::string_view label) {
  HelperImage helper;
  const auto info = propertyList(image, "__info_plist");
  helper.label = textFor(*info, "CFBundleIdentifier");
  expectLabel(helper.label, "CFBundleIdentifier", label);
  helper.version = textFor(*info, "CFBundleVersion");
  if (helper.version.empty()) refuse("the helper has no CFBundleVersion");

  const auto launchd = propertyList(image, "__launchd_plist");
  expectLabel(textFor(*launchd, "Label"), "Label", label);
  std::string reason;
  auto services = platform::machServices(*launchd, label, &reason);
  if (!services) refuse("the helper's job cannot be used: " + reason);
  helper.services = std::move(*services);
  helper.program = programOfImage(image);
  return helper;
}

}  // namespace jobd
