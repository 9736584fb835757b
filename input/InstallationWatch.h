// SPDX-License-Identifier: Apache-2.0

// Notices that the router has been installed, replaced or removed, by whichever program.
//
// The clients of this process learn it by the notification that an installation in this process
// would post. It comes after each change where routers are installed, also after one that leaves
// all as it was: whoever receives it looks for itself.
//
// Threading: any thread; subscribers are told on the loop's thread.
// Ownership: one for the process, never destroyed. A subscription lasts until its token goes.
// Errors: where the places cannot be watched, nothing is noticed.
// Order: the notification first, then the subscribers.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "input/Loop.h"
#include "platform/services/DirectoryWatch.h"
#include "platform/services/Subscribers.h"

namespace wlhid {

class InstallationWatch {
 public:
  static InstallationWatch& shared();

  /// `changed` is called after each change of what is there.
  [[nodiscard]] std::shared_ptr<void> subscribe(std::function<void()> changed);

 private:
  explicit InstallationWatch(Loop& loop) : loop_(loop) {}
  void beginHere();
  void beginLater();
  void noticed();
  void tell();

  Loop& loop_;
  const std::shared_ptr<platform::Subscribers> subscribers_ =
      std::make_shared<platform::Subscribers>();
  // On the loop's thread.
  std::string root_;  // whose places are watched
  std::unique_ptr<platform::DirectoryWatch> watch_;
  Loop::Timer pause_ = 0;
};

}  // namespace wlhid
