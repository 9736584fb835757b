// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/FoundationProvider.h"

#include <cerrno>

namespace platform {

int FoundationProvider::readFile(const std::shared_ptr<NSString>& path, const PieceHandler& look,
                                 const PieceHandler& take) {
  const auto data = dataWithContentsOfFile(path);
  if (!data) return ENOENT;
  const std::string_view piece(reinterpret_cast<const char*>(data->bytes()), data->length());
  if (!piece.empty() && look(piece)) take(piece);
  return 0;
}

ProviderSlot<FoundationProvider>& foundationProvider() {
  static auto& slot = *new ProviderSlot<FoundationProvider>(machineFoundationProvider());
  return slot;
}

}  // namespace platform
