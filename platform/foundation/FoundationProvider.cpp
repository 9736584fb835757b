#include "platform/foundation/FoundationProvider.h"

namespace platform {

ProviderSlot<FoundationProvider>& foundationProvider() {
  static auto& slot = *new ProviderSlot<FoundationProvider>(machineFoundationProvider());
  return slot;
}

}  // namespace platform
