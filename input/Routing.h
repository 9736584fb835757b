// SPDX-License-Identifier: Apache-2.0

// Keeps one device's input coming: watches for the device, for the router and for its installation,
// and starts a client, again and again if need be.
//
//   the router is not installed        waits; the installation's watch tells
//   the device is not there            waits; the directory tells
//   the router has died                the directory's connection ends with it: when it is made
//                                      again, the client is started again. While there is none,
//                                      an idle connection to the router's own service does that
//   the router has refused             what may pass is tried again after a pause; a no is tried
//                                      again when the answer of the directory has become another
//                                      one; without a directory, by retry() only
//
// Threading: on the loop's thread, except where it says otherwise.
// Ownership: the public object and what it posts hold it.
// Errors: become a status.
// Order: as WLHIDAccess/Input.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "WLHIDAccess/Input.h"
#include "input/Backoff.h"
#include "input/DirectoryConnection.h"
#include "input/InputRelay.h"
#include "input/InstallationWatch.h"
#include "input/Loop.h"
#include "input/RouterWatch.h"
#include "input/Strand.h"

namespace wlhid {

class WLHID_NO_EXPORT Input::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
  Implementation(InputOptions options, InputHandlers handlers)
      : options_(std::move(options)),
        handlers_(std::make_shared<const InputHandlers>(std::move(handlers))) {}

  // Any thread.
  void begin();
  void end();
  void retry();
  [[nodiscard]] Status status() const;
  [[nodiscard]] std::shared_ptr<WLHIDEventRouterClient> client() const;

 private:
  void connect();
  void onLoop(void (Implementation::*work)());

  // What has happened.
  void listed();
  void nameDevice();
  void arrived(const Device& device);
  void changed(const Device& device);
  void departed(const Device& device);
  void directoryLost(Loss loss, const std::string& why);
  void goOnWithoutDirectory();
  void routerDied();
  void installationChanged();
  void clientChanged(WLHIDEventRouterClientStatus status);
  /// On the client's threads, so that it is told before the input that follows.
  void tellOfClient(std::uint64_t generation, const std::string& device,
                    WLHIDEventRouterClientStatus status);
  void clientFailed(const Error& error);
  void refused(const Error& error);

  // What is done about it.
  void attempt();
  void attemptNow();
  void open(const Device& device);
  void restart();
  void watchRouter();
  void close();
  void giveUp(InputState state, const Error& error);
  void tryAgainLater();
  void askAgainLater();
  void tell(InputState state, const std::string& text, const std::optional<Error>& error = {});
  void tellLocked(InputState state, const std::string& text, const std::optional<Error>& error);
  [[nodiscard]] bool isCurrent(std::uint64_t generation) const;
  [[nodiscard]] bool mayAskForDevice() const;
  [[nodiscard]] std::optional<Device> findDevice() const;
  [[nodiscard]] bool isWanted(const Device& device) const;
  [[nodiscard]] bool mayHaveBecomeAllowed(const Device& device);
  [[nodiscard]] DeviceFilter filter() const;
  [[nodiscard]] std::string deviceName() const;

  const InputOptions options_;
  const std::shared_ptr<const InputHandlers> handlers_;
  const std::shared_ptr<Strand> strand_ = std::make_shared<Strand>();

  std::shared_ptr<DirectoryConnection> directory_;
  std::shared_ptr<RouterWatch> watch_;  // while there is no directory
  std::shared_ptr<void> installation_;
  std::shared_ptr<InputRelay> relay_;
  bool mustRestart_ = false;  // the client's connection is dead
  bool isDoubtful_ = false;   // it may be, unless the client connects again by itself
  bool hasGivenUp_ = false;
  bool hasDirectory_ = false;            // its connection stands
  int directoryFailures_ = 0;            // in a row, with a router installed
  std::optional<Permission> refusedAs_;  // the permission that was known after a no
  Backoff backoff_;
  Loop::Timer pause_ = 0;

  mutable std::mutex mutex_;  // of what follows
  bool isEnded_ = false;
  std::uint64_t generation_ = 0;  // of the client; what an earlier one tells does not count
  std::optional<Device> device_;  // that was used last; changed on the loop's thread only
  Status status_{InputState::Connecting, "connecting", std::chrono::system_clock::now()};
  std::shared_ptr<WLHIDEventRouterClient> client_;
};

}  // namespace wlhid
