// SPDX-License-Identifier: Apache-2.0

// The section search on arbitrary bytes: whatever it finds is within them.
#include <cstdlib>

#include "helper-install/MachO.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span image(data, size);
  const auto found = findMachOSection(image, "__TEXT", "__info_plist");
  if (!found) return 0;
  const bool within = found->data() >= data && found->data() + found->size() <= data + size;
  if (!within || found->empty()) std::abort();
  // Every byte is read, so that a sanitizer checks each.
  std::uint64_t sum = 0;
  for (const auto byte : *found) sum += byte;
  if (sum > std::uint64_t{255} * found->size()) std::abort();
  return 0;
}
