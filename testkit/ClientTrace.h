// SPDX-License-Identifier: Apache-2.0

// The lines that a client leaves in a scripted platform's trace, step by step, for a client of
// device kEntryID in mode kDeviceMode with the tag dictionary {65536 = tag} and a delegate that
// records its calls. The numbers and texts are spelled out on purpose: log readers and platforms
// see exactly these.
#pragma once

#include <cstdint>
#include <string>

#include "testkit/TraceDiff.h"

namespace testkit {

inline const std::string kLabel = "com.quillmar.hideventrouter";
inline constexpr std::uint64_t kEntryID = 4294968000;  // more than 32 bits
inline constexpr std::uint64_t kDeviceMode = 1;

// ---- Log lines

inline std::string logLine(int level, const std::string& function, int line,
                           const std::string& message,
                           const std::string& tags = "(WLHIDEventRouterClient)") {
  return "log " + std::to_string(level) + " WLHIDEventRouterClient:" + std::to_string(line) +
         " -[WLHIDEventRouterClient " + function + " " + tags + " " + message;
}
inline std::string called(const std::string& method, int line) {
  return logLine(0, method + "]", line, "called");
}

inline std::string dealloc() {
  return called("dealloc", 90);
}
inline std::string currentStatus() {
  return called("currentEventRouterStatus", 100);
}
inline std::string statusChanged() {
  return called("_installationStatusChanged:", 110);
}
inline std::string update(bool started) {
  return logLine(0, "_updateConnection]", 126,
                 started ? "called, started = 1" : "called, started = 0");
}
inline std::string setStarted(bool started) {
  return logLine(0, "setStarted:]", 168,
                 started ? "called, newStarted = 1" : "called, newStarted = 0");
}
inline std::string interruption(const std::string& tags = "(WLHIDEventRouterClient)") {
  return logLine(3, "openConnection]_block_invoke", 221,
                 "WLHIDEventRouterClient: xpcConnectionToService experienced an interruption",
                 tags);
}
inline std::string invalidation(const std::string& tags = "(WLHIDEventRouterClient)") {
  return logLine(2, "openConnection]_block_invoke", 225,
                 "WLHIDEventRouterClient: xpcConnectionToService experienced an invalidation",
                 tags);
}
inline std::string startError(const std::string& error,
                              const std::string& tags = "(WLHIDEventRouterClient)") {
  return logLine(3, "startListeningToService]_block_invoke", 271, "Error(S): " + error, tags);
}
inline std::string openReply(const std::string& error) {
  return logLine(0, "startListeningToService]_block_invoke", 273, "Open reply: " + error);
}
inline std::string notPermittedHint(const std::string& error) {
  return logLine(3, "startListeningToService]_block_invoke", 283,
                 "Error " + error +
                     " opening HID device - consider adding "
                     "KQPermissionAccessibility.ensurePrivilegedHelperHIDAccess "
                     "on 10.15+");
}
inline std::string stopError(const std::string& error,
                             const std::string& tags = "(WLHIDEventRouterClient)") {
  return logLine(3, "stopListeningToService]_block_invoke", 302, "Error(ST): " + error, tags);
}

// ---- Steps of a client

inline Lines installedCheck(const std::string& installedVersion = "7",
                            const std::string& bundleVersion = "7") {
  return {
      "SMJobCopyDictionary(kSMDomainSystemLaunchd, com.quillmar.hideventrouter) -> job",
      "mainBundle bundlePath -> /Applications/Example.app",
      "dataWithContentsOfFile:/Applications/Example.app/Contents/Library/LaunchServices/"
      "com.quillmar.hideventrouter "
      "-> data",
      "dataWithContentsOfFile:/Library/PrivilegedHelperTools/com.quillmar.hideventrouter -> data",
      "propertyListWithData: -> { CFBundleVersion = " + bundleVersion + "; }",
      "propertyListWithData: -> { CFBundleVersion = " + installedVersion + "; }",
  };
}
inline Lines notInstalledCheck() {
  return {"SMJobCopyDictionary(kSMDomainSystemLaunchd, com.quillmar.hideventrouter) -> nil"};
}
inline Lines check(bool installed) {
  return installed ? installedCheck() : notInstalledCheck();
}

inline Lines creation(bool installed) {
  return sequence({called("initWithRegistryEntryID:deviceMode:tagDictionary:typeDictionary:", 73),
                   currentStatus(), check(installed),
                   "defaultCenter addObserver:selector:_installationStatusChanged: "
                   "name:WLHIDEventRouterClientInstallationStatusChanged object:nil"});
}
inline Lines removeObserver() {
  return {
      "defaultCenter removeObserver: name:WLHIDEventRouterClientInstallationStatusChanged "
      "object:nil"};
}

inline std::string connection(int number, const std::string& what) {
  return "connection " + std::to_string(number) + " " + what;
}
inline Lines interfaces() {
  return {
      "interfaceWithProtocol:WLHIDEventRouterProtocol",
      "interfaceWithProtocol:WLHIDEventRouterClientProtocol",
      "interface WLHIDEventRouterClientProtocol setClasses:(NSMutableArray, "
      "KQHIDDeviceElementValue) "
      "forSelector:receivedElementValues: argumentIndex:0 ofReply:NO",
      "interface WLHIDEventRouterProtocol setClasses:(NSData, NSArray, NSNumber, NSError, "
      "NSString, NSDictionary, "
      "NSDate, NSURL, KQIOObject) "
      "forSelector:startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply: "
      "argumentIndex:0 "
      "ofReply:YES",
  };
}
inline Lines opening(int number) {
  return sequence(
      {called("openConnection", 194), check(true), interfaces(),
       connection(number, "initWithMachServiceName:com.quillmar.hideventrouter options:0"),
       connection(number, "setExportedInterface:WLHIDEventRouterClientProtocol"),
       connection(number, "setExportedObject:WLHIDEventRouterClientProtocol"),
       connection(number, "setInterruptionHandler:"), connection(number, "setInvalidationHandler:"),
       connection(number, "setRemoteObjectInterface:WLHIDEventRouterProtocol"),
       connection(number, "resume")});
}
inline Lines startRequest(int number) {
  return {called("startListeningToService", 269),
          connection(number, "remoteObjectProxyWithErrorHandler:"),
          connection(
              number,
              "send startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply: "
              "4294968000 1 { 65536 = tag; } nil")};
}
inline Lines startRequestWithoutConnection() {
  return {called("startListeningToService", 269)};
}
inline Lines stopRequest(int number) {
  return {called("stopListeningToService", 300),
          connection(number, "remoteObjectProxyWithErrorHandler:"),
          connection(number, "send stopRoutingService")};
}
inline Lines closing(int number) {
  return {called("closeConnection", 239), connection(number, "invalidate"),
          connection(number, "released")};
}
inline Lines closeWithoutConnection() {
  return {called("closeConnection", 239)};
}

inline std::string setClientStatus(int status) {
  return logLine(0, "setClientStatus:]", 178,
                 "called, newClientStatus = " + std::to_string(status));
}
/// Includes the call of the delegate, so the client must have one.
inline Lines becomes(int status) {
  return {"will change clientStatus", setClientStatus(status),
          "delegate clientStatusChangedTo " + std::to_string(status), "did change clientStatus"};
}
inline Lines staysAt(int status) {
  return {"will change clientStatus", setClientStatus(status), "did change clientStatus"};
}
/// The policy's whole opening step: connection, status, request.
inline Lines openAndStart(int number) {
  return sequence({opening(number), becomes(2), startRequest(number)});
}

}  // namespace testkit
