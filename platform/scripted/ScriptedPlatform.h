// SPDX-License-Identifier: Apache-2.0

// A platform that follows a test's script and records the calls it gets.
//
//   platform::ScriptedPlatform platform;  // installed until the end of the scope
//   platform.setBundleCopy("com.quillmar.hideventrouter", "7");
//   platform.installHelper("com.quillmar.hideventrouter", "7");
//   const auto client =
//       WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
//           1, 0, nullptr, nullptr);
//   client->setStarted(true);
//   platform.connection(1)->deliverReply(nullptr);
//   EXPECT_EQ(client->clientStatus(), WLHIDEventRouterClientStatusRouting);
//   const auto sent = platform.trace().events(platform::TraceKind::Message);
//   ASSERT_EQ(sent.size(), 1U);
//   EXPECT_EQ(sent[0].arguments, (std::vector<std::string>{"1", "0", "nil", "nil"}));
//
// docs/testing-your-application.md shows an application's test; testkit/ has a recording delegate
// and the lines that a client leaves.
//
// It replaces the providers of the foundation, the services and the connection layer, and the
// logger's sink and level. All calls through them are answered as scripted and recorded in one
// ordered trace: platform calls with their arguments, NSLog and logger lines, notifications,
// observed changes. What is not scripted is answered as by a machine with nothing installed: no
// job, no file, no removal.
//
// Threading: any thread. One ScriptedPlatform at a time in a process.
// Ownership: the destructor restores what was installed before and drops what is pending. Objects
//   created while it was installed may outlive it; their calls then go to the restored providers.
// Errors: std::out_of_range for a connection that was not created.
// Order: see Trace.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/KeyValueObserving.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"
#include "platform/kit/KQLogger.h"
#include "platform/scripted/ScriptedConnection.h"
#include "platform/scripted/Trace.h"
#include "platform/services/Authorization.h"

namespace platform {

class FoundationProvider;
class ServicesProvider;
class XPCProvider;

/// The outcome of a removal or a bless. The error may be null either way.
struct ScriptedOutcome {
  bool success = false;
  std::shared_ptr<NSError> error;
};

class ScriptedPlatform {
 public:
  using OutcomeScript = std::function<ScriptedOutcome()>;
  struct State;

  /// Log level 0, so that every line is recorded.
  ScriptedPlatform();
  ~ScriptedPlatform();
  ScriptedPlatform(const ScriptedPlatform&) = delete;
  ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;

  [[nodiscard]] Trace& trace();
  void setLogLevel(std::uint64_t level);

  // Files and property lists.

  /// "/Applications/Example.app" by default; may be null.
  void setMainBundlePath(std::shared_ptr<NSString> path);
  void setFile(std::string path, std::vector<std::uint8_t> bytes);
  void removeFile(std::string_view path);
  /// The result of parsing exactly these bytes; may be null. Other bytes are really parsed.
  void setPropertyList(std::string bytes, std::shared_ptr<NSObject> result);
  /// These bytes are really parsed again.
  void removePropertyList(std::string_view bytes);

  // Jobs and authorization.

  /// The job's dictionary from now on; null if there is no such job.
  void setJob(std::string label, std::shared_ptr<NSDictionary> job);
  /// The results of the next requests for any job's dictionary, before setJob applies.
  void setNextJobs(std::vector<std::shared_ptr<NSDictionary>> jobs);
  void setAuthorizationStatus(OSStatus status);
  /// Runs at each removal or bless; what it does (installHelper, for instance) happens before the
  /// call returns.
  void setRemoval(OutcomeScript script);
  void setBless(OutcomeScript script);

  /// Adds a job with `installedVersion` at /Library/PrivilegedHelperTools/LABEL. It counts as
  /// installed if the main bundle's copy has the same version: see setBundleCopy.
  void installHelper(const std::string& label, std::string_view installedVersion);
  void uninstallHelper(const std::string& label);
  /// Adds the main bundle's copy of the helper.
  void setBundleCopy(const std::string& label, std::string_view version);
  /// The dictionary that installHelper makes, for setNextJobs.
  [[nodiscard]] static std::shared_ptr<NSDictionary> helperJob(const std::string& label);

  // Connections.

  /// From now on no interface is created for the protocol with that name; with false, one is again.
  void refuseInterface(const std::string& protocolName, bool refuse = true);
  /// From now on no connection is created; with false, they are again.
  void refuseConnections(bool refuse = true);
  [[nodiscard]] std::size_t connectionCount() const;
  /// The first is number 1.
  [[nodiscard]] std::shared_ptr<ScriptedConnection> connection(std::size_t number) const;

  /// Records "will change KEY" and "did change KEY" while the token exists.
  [[nodiscard]] KeyValueObservation observe(KeyValueObservable& object, std::string_view key);

 private:
  const std::shared_ptr<State> state_;
  std::shared_ptr<FoundationProvider> previousFoundation_;
  std::shared_ptr<ServicesProvider> previousServices_;
  std::shared_ptr<XPCProvider> previousXPC_;
  std::shared_ptr<KQLogSink> previousSink_;
  std::uint64_t previousLogLevel_ = 0;
};

/// A logger line as the trace shows it:
/// "log 0 WLHIDEventRouterClient:168 -[WLHIDEventRouterClient setStarted:] (WLHIDEventRouterClient)
/// called, newStarted = 1", with "no tags" in place of the tags if there are none.
[[nodiscard]] std::string describeLogEntry(const KQLogEntry& entry);

}  // namespace platform
