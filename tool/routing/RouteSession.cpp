// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/RouteSession.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/foundation/NSDictionary.h"
#include "router/RouterErrors.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"

namespace tool {

namespace {

int makeWakeDescriptor() {
  const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) throw Failure("cannot wait for events: " + describeErrno(errno));
  return descriptor;
}

std::string descriptionOf(const platform::NSError& error) {
  const auto text = error.userInfo()
                        ? error.userInfo()->objectForKey(platform::NSLocalizedDescriptionKey)
                        : nullptr;
  return text ? text->description() : "the recording has been played to its end";
}

}  // namespace

RouteSession::RouteSession(std::unique_ptr<DeliveryLines> lines, int outputDescriptor,
                           std::optional<std::uint64_t> last, std::string outputName)
    : lines_(std::move(lines)),
      output_(outputDescriptor),
      outputName_(std::move(outputName)),
      last_(last),
      wake_(makeWakeDescriptor()) {}

RouteSession::~RouteSession() {
  ::close(wake_);
}

void RouteSession::hidEventRouterClient_clientStatusChangedTo(
    const std::shared_ptr<WLHIDEventRouterClient>& client, WLHIDEventRouterClientStatus status) {
  if (ending_) return;
  if (status != WLHIDEventRouterClientStatusOpening) answered_ = true;
  std::string line;
  lines_->appendStatus(line, status);
  line = takeDueStatus(line, status);
  if (!line.empty()) print(client, line);
  if (status == WLHIDEventRouterClientStatusRouterUnavailable) {
    end(client, {true, "the router is no longer installed (install it with: " +
                           commandLine({"install"}) + ")"});
  }
}

std::string RouteSession::takeDueStatus(const std::string& line,
                                        WLHIDEventRouterClientStatus status) {
  const std::lock_guard lock(mutex_);
  heldBack_ += line;
  const bool mayBeTheEnd =
      status == WLHIDEventRouterClientStatusOpening || status == WLHIDEventRouterClientStatusFailed;
  if (wasRouted_ && mayBeTheEnd) return {};
  wasRouted_ = wasRouted_ || status == WLHIDEventRouterClientStatusRouting;
  return std::exchange(heldBack_, {});
}

std::string RouteSession::takeHeldBack() {
  const std::lock_guard lock(mutex_);
  return std::exchange(heldBack_, {});
}

void RouteSession::hidEventRouterClient_handleError(
    const std::shared_ptr<WLHIDEventRouterClient>& client,
    const std::shared_ptr<platform::NSError>& error) {
  if (ending_ || !error) return;
  std::string line = takeHeldBack();
  if (router::isEndOfRecording(*error)) {
    line.clear();
    lines_->appendEnd(line, descriptionOf(*error));
    print(client, line);
    return end(client, {});
  }
  lines_->appendError(line, *error);
  print(client, line);
  end(client, {true, "the router refused: " + describeError(error)});
}

void RouteSession::hidEventRouterClient_receivedReportData_reportID(
    const std::shared_ptr<WLHIDEventRouterClient>& client,
    const std::shared_ptr<platform::NSData>& data, std::uint32_t reportID) {
  if (ending_ || !data) return;  // a router may send nil
  if (last_ && reports_ == *last_) return end(client, {});
  std::string line;
  lines_->appendReport(line, data->span(), reportID);
  if (!print(client, line)) return;
  ++reports_;
  if (!last_ || reports_ != *last_) return;
  lastReportSeen_ = true;
  wake();
}

void RouteSession::hidEventRouterClient_receivedElementValues(
    const std::shared_ptr<WLHIDEventRouterClient>& client,
    const std::shared_ptr<platform::NSArray>& elementValues) {
  if (ending_ || !elementValues) return;
  std::string line;
  lines_->appendElementValues(line, *elementValues);
  print(client, line);
  if (lastReportSeen_) end(client, {});
}

bool RouteSession::print(const std::shared_ptr<WLHIDEventRouterClient>& client,
                         const std::string& line) {
  if (output_.write(line)) return true;
  const int failure = output_.failure();
  // A reader that has seen enough closes its end; that is not a failure.
  if (failure == EPIPE)
    end(client, {});
  else
    end(client, {true, "cannot write to " + outputName_ + ": " + describeErrno(failure)});
  return false;
}

void RouteSession::end(const std::shared_ptr<WLHIDEventRouterClient>& client, RouteEnd how) {
  if (ending_.exchange(true)) return;
  {
    const std::lock_guard lock(mutex_);
    end_ = std::move(how);
  }
  if (client) client->setStarted(false);
  stopped_ = true;
  wake();
}

RouteEnd RouteSession::howItEnded() const {
  output_.finish();
  const std::lock_guard lock(mutex_);
  return end_;
}

void RouteSession::drainWake() const {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t taken = ::read(wake_, &count, sizeof count);
}

void RouteSession::wake() {
  const std::uint64_t one = 1;
  // The counter is full only after 2^64 - 2 wakes that nobody has read.
  [[maybe_unused]] const ssize_t written = ::write(wake_, &one, sizeof one);
}

}  // namespace tool
