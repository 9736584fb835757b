// SPDX-License-Identifier: Apache-2.0

// Holds the provider of one part of the platform: the real one until it is replaced.
//
// Threading: any thread. The lock covers one load or one exchange; a provider's functions never run
//   under it, and a replaced provider is destroyed after unlock.
// Ownership: the slot and every call in progress share the provider, so a replaced one lives until
//   its last call ends.
#pragma once

#include <memory>
#include <mutex>

namespace platform {

template <class Provider>
class ProviderSlot {
 public:
  explicit ProviderSlot(std::shared_ptr<Provider> provider) : provider_(std::move(provider)) {}

  [[nodiscard]] std::shared_ptr<Provider> load() const {
    const std::lock_guard lock(mutex_);
    return provider_;
  }
  /// Returns the previous provider.
  std::shared_ptr<Provider> exchange(std::shared_ptr<Provider> provider) {
    const std::lock_guard lock(mutex_);
    provider_.swap(provider);
    return provider;
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<Provider> provider_;
};

}  // namespace platform
