// SPDX-License-Identifier: Apache-2.0

// The application: a foot switch that starts and stops a recorder, and says so when it can't.
#pragma once

#include <string>

#include "WLHIDAccess/WLHIDAccess.h"

class FootSwitch final : public WLHIDEventRouterClientDelegate {
 public:
  [[nodiscard]] bool isRecording() const { return isRecording_; }
  /// What a person is told; empty while all is well.
  [[nodiscard]] const std::string& trouble() const { return trouble_; }

  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>& data,
      std::uint32_t) override {
    const bool isDown = data->length() > 0 && data->span()[0] != 0;
    if (isDown && !wasDown_) isRecording_ = !isRecording_;
    wasDown_ = isDown;
  }
  void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                  WLHIDEventRouterClientStatus status) override {
    const bool isMissing = status == WLHIDEventRouterClientStatusRouterUnavailable;
    trouble_ =
        isMissing ? "The foot switch needs the event router. Install it in the settings." : "";
  }

 private:
  bool isRecording_ = false;
  bool wasDown_ = false;
  std::string trouble_;
};
