// SPDX-License-Identifier: Apache-2.0

// Notices changes of the files that recorded devices are made of (DeviceFiles.h).
//
// Threading, Errors, Order: as platform/services/DirectoryWatch.h.
#pragma once

#include <memory>
#include <utility>

#include "platform/services/DirectoryWatch.h"
#include "platform/services/SystemRoot.h"
#include "router/Devices.h"

namespace router {

class ReplayWatch final : public DeviceWatch {
 public:
  /// Null if nothing can be watched.
  static std::unique_ptr<ReplayWatch> begin(const platform::SystemRoot& root);

  [[nodiscard]] int descriptor() const override { return directories_->descriptor(); }
  bool take() override { return directories_->take(); }

 private:
  explicit ReplayWatch(std::unique_ptr<platform::DirectoryWatch> directories)
      : directories_(std::move(directories)) {}

  const std::unique_ptr<platform::DirectoryWatch> directories_;
};

}  // namespace router
