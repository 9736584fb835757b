// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/Input.h"

#include <utility>

#include "input/Routing.h"

namespace wlhid {

namespace {

InputHandlers handlersOf(const std::weak_ptr<InputDelegate>& delegate) {
  return {.report =
              [delegate](const Report& report) {
                if (const auto receiver = delegate.lock()) receiver->received(report);
              },
          .values =
              [delegate](std::span<const Value> values) {
                if (const auto receiver = delegate.lock()) receiver->received(values);
              },
          .status =
              [delegate](const Status& status) {
                if (const auto receiver = delegate.lock()) receiver->changed(status);
              }};
}

}  // namespace

const char* nameOf(InputState state) {
  switch (state) {
    case InputState::Connecting:
      return "connecting";
    case InputState::WaitingForRouter:
      return "waiting for the router";
    case InputState::WaitingForDevice:
      return "waiting for the device";
    case InputState::Routing:
      return "routing";
    case InputState::Reconnecting:
      return "reconnecting";
    case InputState::NotAllowed:
      return "not allowed";
    case InputState::Ended:
      return "ended";
    case InputState::Stopped:
      break;
  }
  return "stopped";
}

Input::Input(InputOptions options, InputHandlers handlers)
    : implementation_(std::make_shared<Implementation>(std::move(options), std::move(handlers))) {
  implementation_->begin();
}

Input::Input(InputOptions options, const std::weak_ptr<InputDelegate>& delegate)
    : Input(std::move(options), handlersOf(delegate)) {}

Input::~Input() {
  implementation_->end();
}

Status Input::status() const {
  return implementation_->status();
}

void Input::retry() {
  implementation_->retry();
}

std::shared_ptr<WLHIDEventRouterClient> Input::client() const {
  return implementation_->client();
}

}  // namespace wlhid
