// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/ReportWatch.h"

namespace tool {

class ReportWatch::Lines final : public DeliveryLines {
 public:
  explicit Lines(std::shared_ptr<State> state) : state_(std::move(state)) {}
  void appendReport(std::string& out, std::span<const std::uint8_t> bytes,
                    std::uint32_t /*reportID*/) override {
    const std::lock_guard lock(state_->mutex);
    ++state_->reports;
    if (state_->handler) state_->handler(out, {state_->reports, bytes});
  }
  void appendStatus(std::string& /*out*/, WLHIDEventRouterClientStatus status) override {
    if (status != WLHIDEventRouterClientStatusRouting) return;
    const std::lock_guard lock(state_->mutex);
    state_->reports = 0;
  }
  void appendError(std::string& /*out*/, const platform::NSError& /*error*/) override {}
  void appendElementValues(std::string& /*out*/, const platform::NSArray& /*values*/) override {}
  void appendEnd(std::string& /*out*/, const std::string& /*reason*/) override {}

 private:
  const std::shared_ptr<State> state_;
};

ReportWatch::ReportWatch(Handler handler) : state_(std::make_shared<State>()) {
  state_->handler = std::move(handler);
}

ReportWatch::~ReportWatch() {
  const auto held = lock();
  state_->handler = nullptr;
}

std::unique_ptr<DeliveryLines> ReportWatch::lines() const {
  return std::make_unique<Lines>(state_);
}

std::unique_lock<std::mutex> ReportWatch::lock() const {
  return std::unique_lock(state_->mutex);
}

}  // namespace tool
