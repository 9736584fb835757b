#include "platform/foundation/FoundationProvider.h"

#include <cerrno>

namespace platform {

int FoundationProvider::readFile(const std::shared_ptr<NSString>& path,
                                 const std::function<bool(std::string_view piece)>& take) {
  const auto data = dataWithContentsOfFile(path);
  if (!data) return ENOENT;
  if (data->length() > 0) take({reinterpret_cast<const char*>(data->bytes()), data->length()});
  return 0;
}

ProviderSlot<FoundationProvider>& foundationProvider() {
  static auto& slot = *new ProviderSlot<FoundationProvider>(machineFoundationProvider());
  return slot;
}

}  // namespace platform
