// SPDX-License-Identifier: Apache-2.0

// The router's log on the system's own root: each line goes to the journal, with its fields, and to
// the classic log. Both are written in the background.
//
// Threading: any thread; never waits.
// Ownership: the sink shares the log.
// Errors: see BackgroundLog.h and ClassicLog.h.
#pragma once

#include <memory>

#include "platform/services/FileDescriptor.h"
#include "platform/system/Journal.h"
#include "router/BackgroundLog.h"
#include "router/ClassicLog.h"
#include "router/RouterLog.h"
#include "router/policy/RoutingJournal.h"

namespace router {

class SystemLog : public std::enable_shared_from_this<SystemLog> {
 public:
  /// The classic log is "system.log" in the open directory.
  SystemLog(platform::system::Journal journal, platform::FileDescriptor directory,
            const RouterLimits& limits = {});

  /// For RouterOptions.
  [[nodiscard]] RouterLog sink();
  /// For AuthoritySources.
  void note(const RoutingRecord& record) { routings_.note(record); }

 private:
  BackgroundLog background_;
  RoutingJournal routings_;  // ends before the log
};

}  // namespace router
