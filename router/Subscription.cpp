// SPDX-License-Identifier: Apache-2.0

#include "router/Subscription.h"

#include <algorithm>

namespace router {

const std::shared_ptr<platform::NSData>& ReportInTransit::data() {
  if (data_ == nullptr) data_ = platform::NSData::dataWithBytes(report_);
  return data_;
}

const std::shared_ptr<platform::NSArray>& ReportInTransit::allValues() {
  if (allValues_ == nullptr && !values_.empty()) allValues_ = platform::elementValueArray(values_);
  return allValues_;
}

void Subscription::begin() {
  const std::lock_guard lock(sending_);
  isActive_ = !isRevoked_;
}

void Subscription::end() {
  const std::lock_guard lock(sending_);
  isActive_ = false;
}

void Subscription::revoke() {
  const std::lock_guard lock(sending_);
  isActive_ = false;
  isRevoked_ = true;
}

bool Subscription::isActive() const {
  const std::lock_guard lock(sending_);
  return isActive_;
}

void Subscription::deliver(ReportInTransit* report) {
  if (!covers(report->reportID())) return;
  const std::lock_guard lock(sending_);
  if (!isActive_) return;
  if (!backlog_->admits(sink_->unsentBytes())) {
    lost_.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  send(report);
}

void Subscription::noteLost(std::uint64_t reports) {
  const std::lock_guard lock(sending_);
  if (isActive_) lost_.fetch_add(reports, std::memory_order_relaxed);
}

void Subscription::deliverWithoutLoss(ReportInTransit* report) {
  if (!covers(report->reportID())) return;
  const std::lock_guard lock(sending_);
  if (isActive_) send(report);
}

void Subscription::send(ReportInTransit* report) {
  const auto number = delivered_.fetch_add(1, std::memory_order_relaxed) + 1;
  if (arrivals_ != nullptr) arrivals_->note(number, report->arrival());
  if (filter_.wantsEverything()) {
    sink_->send(report->data(), report->reportID(), report->allValues());
    return;
  }
  const auto wanted = filter_.select(report->values(), &wanted_);
  std::shared_ptr<platform::NSArray> values;
  if (!wanted.empty()) values = platform::elementValueArray(wanted);
  sink_->send(report->data(), report->reportID(), values);
}

ReportArrivals Subscription::arrivals() {
  const std::lock_guard lock(sending_);
  if (arrivals_ == nullptr) arrivals_ = std::make_unique<ArrivalNotes>(delivered() + 1);
  return arrivals_->latest();
}

std::size_t Subscription::awaitedBytes() const {
  // A client that has read everything always has room.
  return std::max<std::size_t>(backlog_->waitLimit(sink_->unsentBytes()), 1);
}

bool Subscription::waitForRoom(const StopSignal& stop, bool patiently) {
  // Between checks whether the wait is still wanted.
  constexpr std::chrono::milliseconds kPollInterval{50};
  const auto stalled = std::chrono::steady_clock::now() + stallTimeout();
  while (!sink_->waitUntilUnsentBelow(awaitedBytes(), kPollInterval)) {
    if (stop.isRaised() || !isActive()) return true;
    if (!patiently && std::chrono::steady_clock::now() >= stalled) return false;
  }
  return true;
}

bool Subscription::hasTakenAllWithin(std::chrono::milliseconds moment) {
  return sink_->waitUntilUnsentBelow(1, moment) || !isActive();
}

}  // namespace router
