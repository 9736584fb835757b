// SPDX-License-Identifier: Apache-2.0

#include "router/policy/GrantedInquiries.h"

namespace router {

void GrantedInquiries::add(const std::shared_ptr<RoutingInquiry>& inquiry) {
  const std::lock_guard lock(mutex_);
  std::erase_if(inquiries_, [](const auto& each) { return each.expired(); });
  inquiries_.push_back(inquiry);
}

void GrantedInquiries::review() {
  std::vector<std::weak_ptr<RoutingInquiry>> inquiries;
  {
    const std::lock_guard lock(mutex_);
    inquiries = inquiries_;
  }
  for (const auto& each : inquiries)
    if (const auto inquiry = each.lock()) inquiry->review();
}

}  // namespace router
