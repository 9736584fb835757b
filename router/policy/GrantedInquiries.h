// SPDX-License-Identifier: Apache-2.0

// The inquiries that rest on an administrator's lasting grant, of whose end nobody tells.
//
// Threading: any thread. Looking at grants may wait for a disk.
// Ownership: refers to the inquiries weakly.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "router/policy/RoutingInquiry.h"

namespace router {

class GrantedInquiries {
 public:
  void add(const std::shared_ptr<RoutingInquiry>& inquiry);
  void review();

 private:
  std::mutex mutex_;
  std::vector<std::weak_ptr<RoutingInquiry>> inquiries_;
};

}  // namespace router
