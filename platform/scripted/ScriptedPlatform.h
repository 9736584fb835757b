// A whole platform that a test scripts and whose calls it records.
//
//   platform::ScriptedPlatform platform;  // in place from here to the end of the scope
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
// docs/testing-your-application.md shows the test of an application; testkit/ has a delegate that
// records and the lines that a client leaves.
//
// It takes the places of the foundation's, the services' and the connection layer's providers, and
// of the logger's sink and level. Everything that runs through them is answered as scripted and
// recorded in one ordered trace: platform calls with their arguments, NSLog and logger lines,
// notifications, observed changes. What is not scripted is answered as a machine on which nothing
// is installed would: no job, no file, no removal.
//
// Threading: scripting and asking, any thread. One ScriptedPlatform at a time in a process.
// Ownership: what was in place comes back in the destructor, and what is still pending is dropped
//   there. Objects made while it was in place may outlive it; their calls into the platform then go
//   to what came back.
// Errors: std::out_of_range for a connection that was not made.
// Order: see Trace.h.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/KeyValueObserving.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/kit/KQLogger.h"
#include "platform/scripted/ScriptedConnection.h"
#include "platform/scripted/Trace.h"
#include "platform/services/Authorization.h"

namespace platform {

class FoundationProvider;
class ServicesProvider;
class XPCProvider;

/// How a removal or a bless ends. The error may be null either way.
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

  /// "/Applications/Example.app" unless set; null for none.
  void setMainBundlePath(std::shared_ptr<NSString> path);
  void setFile(std::string path, std::vector<std::uint8_t> bytes);
  void removeFile(std::string_view path);
  /// What parsing exactly these bytes gives, null included. Other bytes are parsed in earnest.
  void setPropertyList(std::string bytes, std::shared_ptr<NSObject> result);
  /// These bytes are parsed in earnest again.
  void removePropertyList(std::string_view bytes);

  // Jobs and authorization.

  /// The job's dictionary from now on; null: no such job.
  void setJob(std::string label, std::shared_ptr<NSDictionary> job);
  /// The answers to the next questions for any job's dictionary, ahead of what setJob says.
  void setNextJobs(std::vector<std::shared_ptr<NSDictionary>> jobs);
  void setAuthorizationStatus(OSStatus status);
  /// Run at each removal or bless; what it does (installHelper for instance) happens before the
  /// call returns.
  void setRemoval(OutcomeScript script);
  void setBless(OutcomeScript script);

  /// A job with `installedVersion` at /Library/PrivilegedHelperTools/<label>. It counts as
  /// installed where the main bundle's own copy has the same version: see setBundleCopy.
  void installHelper(const std::string& label, std::string_view installedVersion);
  void uninstallHelper(const std::string& label);
  /// The main bundle's own copy of the helper.
  void setBundleCopy(const std::string& label, std::string_view version);
  /// The dictionary that installHelper makes, for setNextJobs.
  [[nodiscard]] static std::shared_ptr<NSDictionary> helperJob(const std::string& label);

  // Connections.

  /// From now on no interface is made of the protocol with that name; with false one is again.
  void refuseInterface(const std::string& protocolName, bool refuse = true);
  /// From now on no connection is made; with false they are again.
  void refuseConnections(bool refuse = true);
  [[nodiscard]] std::size_t connectionCount() const;
  /// The first is number 1.
  [[nodiscard]] std::shared_ptr<ScriptedConnection> connection(std::size_t number) const;

  /// Records "will change KEY" and "did change KEY" for as long as the token lives.
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
/// called, newStarted = 1"; "no tags" stands where there are none.
[[nodiscard]] std::string describeLogEntry(const KQLogEntry& entry);

}  // namespace platform
