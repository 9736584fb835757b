// SPDX-License-Identifier: Apache-2.0

// What was decided about whose routing, as log entries with fields that an administrator can filter
// by:
//
//   WLHID_EVENT      granted, denied, begun, revoked or ended; a grant may end without a beginning
//   WLHID_USER       the user's number
//   WLHID_PROGRAM    the program's path; of another user's, what it calls itself
//   WLHID_UNIT       its systemd unit; missing if it is in none
//   WLHID_DEVICE     the device's name
//   WLHID_VENDOR, WLHID_PRODUCT   four hexadecimal digits each
//   WLHID_CLASS      ordinary or sensitive
//
// Threading: any thread; never waits.
// Errors: entries in excess of a user's share are left out, and their number is written as soon as
//   that user may log again and anything is noted.
#pragma once

#include <functional>

#include "router/BackgroundLog.h"
#include "router/Quotas.h"
#include "router/policy/SystemAuthority.h"

namespace router {

class RoutingJournal {
 public:
  using Add = std::function<void(LogEntry entry)>;

  RoutingJournal(Add add, const RouterLimits& limits) : add_(std::move(add)), quota_(limits) {}
  RoutingJournal(const RoutingJournal&) = delete;
  RoutingJournal& operator=(const RoutingJournal&) = delete;
  ~RoutingJournal() { noteLeftOut(); }

  void note(const RoutingRecord& record);

 private:
  void noteLeftOut();

  const Add add_;
  LineQuota quota_;
};

}  // namespace router
