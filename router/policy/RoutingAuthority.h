// SPDX-License-Identifier: Apache-2.0

// Who may have which device's input: decided for each start request, by nobody but the router.
//
// A user's own root has no authority: its owner may route everything in it. On the system's own
// root there is one, and what it does not allow is not routed.
//
// Threading: any thread. Callbacks come on any thread, possibly before the call that they belong to
//   returns, with no lock held; they must not wait.
// Ownership: a RoutingPermit is held for as long as it is needed. Dropping it withdraws the
//   question or ends the permission.
// Order: `decided` once, and after a yes `revoked` at most once. Either may still be on its way
//   when the permit is dropped, so a receiver must be able to tell which permit a callback belongs
//   to.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/xpc/NSXPCConnection.h"
#include "router/Devices.h"
#include "router/ReportIDs.h"
#include "router/Subscription.h"
#include "router/UsageFilter.h"
#include "router/policy/DeviceClass.h"

namespace router {

struct RoutingRequest {
  DeviceDescription device;
  DeviceMode mode = DeviceMode::Shared;
  UsageFilter usages;  ///< what the application has named
  /// Only to know the answer: nobody is asked, nothing is recorded, and a yes permits nothing.
  bool isPreview = false;
};

struct RoutingAnswer {
  bool isAllowed = false;
  /// Why not, for the application and the log: one sentence without a full stop.
  std::string reason;
  /// What the permission covers.
  ReportIDs reports = allReports();
  /// With a no to a preview: a person would be asked, who may say yes.
  bool needsPerson = false;
  /// A no because there is no such device any more, which is nobody's decision.
  bool isGone = false;
};

/// A question that is being answered, or the permission that was the answer.
class RoutingPermit {
 public:
  virtual ~RoutingPermit() = default;
  /// The input flows from now on. For the record.
  virtual void noteBeginning() {}
};

/// The process at the other end of one connection.
class RoutingCaller {
 public:
  using Decided = std::function<void(const RoutingAnswer& answer)>;
  using Revoked = std::function<void(const std::string& reason)>;

  virtual ~RoutingCaller() = default;
  /// Asks whether this caller may have the device. Never waits.
  [[nodiscard]] virtual std::unique_ptr<RoutingPermit> ask(const RoutingRequest& request,
                                                           Decided decided, Revoked revoked) = 0;
  /// Asks whether this caller may end a session that is not its own user's, or that may not even
  /// exist: the answer must not depend on it. Never waits.
  [[nodiscard]] virtual std::unique_ptr<RoutingPermit> askToEnd(std::uint64_t session,
                                                                Decided decided) = 0;
  /// For people; empty if unknown.
  [[nodiscard]] virtual std::string program() const = 0;
  [[nodiscard]] virtual std::string unit() const = 0;
};

class RoutingAuthority {
 public:
  virtual ~RoutingAuthority() = default;
  /// To be called when the connection is accepted: who calls is read from the kernel then. Null if
  /// the caller cannot be identified, which refuses the connection.
  [[nodiscard]] virtual std::shared_ptr<RoutingCaller> callerOf(
      const platform::NSXPCConnection& connection) = 0;
  /// Empty if there is no such device any more.
  [[nodiscard]] virtual std::optional<Classification> classOf(
      const DeviceDescription& device) const = 0;
  /// Ends the permissions that rest on what no longer stands and nobody tells of. To be called
  /// about once a second; may wait for a disk.
  virtual void review() {}
  /// Whether it remembers what would be forgotten if the router ended now: a no keeps the same
  /// question from being asked again at once.
  [[nodiscard]] virtual bool hasMemories() { return false; }
};

}  // namespace router
