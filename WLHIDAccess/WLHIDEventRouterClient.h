// SPDX-License-Identifier: Apache-2.0

// A client object receives the input of one HID device through the HID event router.
//
//   using Client = WLHIDEventRouterClient;
//   auto client = Client::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
//       id, /*deviceMode=*/0, /*tagDictionary=*/nullptr, /*typeDictionary=*/nullptr);
//   client->setDelegate(delegate);  // held weakly
//   client->setStarted(true);       // the delegate receives statuses, errors and input
//   client->setStarted(false);      // sends a stop request, then closes the connection
//
// Threading: any thread. setStarted runs on the caller's thread and calls the delegate there;
//   everything from the router arrives on the connection's queue. No lock is held while the
//   delegate or an observer runs.
// Ownership: the application owns the client. The client holds its delegate weakly. A pending start
//   request keeps the client alive until it is answered. Releasing the last reference closes the
//   connection.
// Errors: the router's errors go to hidEventRouterClient_handleError, unchanged; everything else is
//   logged through KQLogger.
// Order: see WLHIDEventRouterClientDelegate.h. Changes of "started", "eventRouterStatus" and
//   "clientStatus" are announced by key-value observing: will-change before and did-change after
//   everything that the change triggers.
// Forks: a client belongs to the process that created it. In a child it does nothing: release it
//   and create a new one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/KeyValueObserving.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"
#include "platform/kit/KQLogTagging.h"

/// Posted on the default notification center, with a null object, after each successful install or
/// uninstall.
inline constexpr std::string_view WLHIDEventRouterClientInstallationStatusChanged =
    "WLHIDEventRouterClientInstallationStatusChanged";

class WLHID_EXPORT WLHIDEventRouterClient final
    : public platform::NSObject,
      public platform::KeyValueObservable,
      public platform::KQLogTagging,
      public std::enable_shared_from_this<WLHIDEventRouterClient> {
 public:
  using CompletionHandler =
      std::function<void(bool success, const std::shared_ptr<platform::NSError>& error)>;

  /// Whether the installed router has the same version as the application's copy. Checked afresh on
  /// every call.
  static bool isInstalled();
  /// Asks for authorization with `prompt` (null: the system's own text), then installs the router.
  /// Synchronous: the handler (may be empty) is called before this returns; on success the
  /// notification is posted after it.
  static void installWithPrompt_completionHandler(const std::shared_ptr<platform::NSString>& prompt,
                                                  const CompletionHandler& handler);
  static void uninstallWithPrompt_completionHandler(
      const std::shared_ptr<platform::NSString>& prompt, const CompletionHandler& handler);

  /// Opens no connection and starts nothing. Any ID and null dictionaries are accepted. The
  /// dictionaries are shared, not copied, and passed to the router unchanged.
  static std::shared_ptr<WLHIDEventRouterClient>
  initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
      std::uint64_t registryEntryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tagDictionary,
      const std::shared_ptr<platform::NSDictionary>& typeDictionary);
  ~WLHIDEventRouterClient() override;

  [[nodiscard]] std::uint64_t registryEntryID() const;
  [[nodiscard]] std::uint64_t hidDeviceMode() const;
  [[nodiscard]] WLHIDEventRouterStatus eventRouterStatus() const;
  [[nodiscard]] WLHIDEventRouterClientStatus clientStatus() const;
  void setClientStatus(WLHIDEventRouterClientStatus newClientStatus);
  [[nodiscard]] bool started() const;
  void setStarted(bool newStarted);

  /// Null once the delegate is gone.
  [[nodiscard]] std::shared_ptr<WLHIDEventRouterClientDelegate> delegate() const;
  /// Stores a weak reference and does nothing else. Null removes the delegate.
  void setDelegate(const std::shared_ptr<WLHIDEventRouterClientDelegate>& delegate);

  /// The tags under which a client logs: "WLHIDEventRouterClient".
  [[nodiscard]] std::shared_ptr<platform::NSArray> logTags() const override;
  /// Class methods that have the same name as an instance method.
  struct Class {
    [[nodiscard]] static std::shared_ptr<platform::NSArray> logTags();
  };

  static const platform::NSClass& classObject();
  [[nodiscard]] const platform::NSClass& isa() const override { return classObject(); }

  /// Private; in router-client/.
  class Implementation;

 private:
  WLHIDEventRouterClient(std::uint64_t registryEntryID, std::uint64_t deviceMode,
                         const std::shared_ptr<platform::NSDictionary>& tagDictionary,
                         const std::shared_ptr<platform::NSDictionary>& typeDictionary);

  const std::unique_ptr<Implementation> implementation_;
};
