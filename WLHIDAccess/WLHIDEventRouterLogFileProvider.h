// SPDX-License-Identifier: Apache-2.0

// The log module that adds the router's system log entries to a diagnostic report.
//
// An application need not do anything: one instance is registered with the shared logger when the
// library is loaded or, if it is linked statically, when the program starts.
//
//   for (const auto& module : platform::KQLogger::sharedLogger().modules()) ...
//
// Threading: any thread. The files are provided, and the log is read, on the caller's thread.
// Ownership: the logger keeps the module. The file's source captures nothing.
// Errors: providing the file never fails. If the log cannot be read, the file's source reports the
//   error, with empty data.
// Order: the completion handler runs before provideFilesWithCompletionHandler returns. The log is
//   read afresh each time the source runs, whose handler runs before it returns.
#pragma once

#include <memory>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"
#include "platform/kit/KQLogModule.h"

/// The module's identifier: "WLHIDEventRouter".
extern WLHID_EXPORT const std::shared_ptr<platform::NSString>
    KQLogModuleIdentifierWLHIDEventRouterLogFileProvider;

class WLHID_EXPORT WLHIDEventRouterLogFileProvider final
    : public platform::KQLogModule,
      public platform::KQLogModuleFileProvider {
 public:
  static const platform::NSClass& classObject();
  static std::shared_ptr<WLHIDEventRouterLogFileProvider> init();

  /// Registers a new instance with the shared logger. Called automatically when the library is
  /// loaded; further calls have no effect, since the logger keeps one module per identifier.
  static void load();

  /// Provides one file, "syslog-com.quillmar.hideventrouter.log": the entries of
  /// /var/log/system.log (below the system root) whose first line names the router. Its source
  /// passes the read error or null, a null URL, data that is never null, and false.
  void provideFilesWithCompletionHandler(const FilesHandler& handler) override;

  [[nodiscard]] const platform::NSClass& isa() const override { return classObject(); }

 private:
  WLHIDEventRouterLogFileProvider();
};

/// True once the module is registered. A program that links the static library refers to this name
/// (with the linker's option --undefined, which the CMake package and pkg-config bring), because it
/// would otherwise be linked without the module if it uses nothing else of it.
extern "C" WLHID_EXPORT const bool WLHIDEventRouterLogFileProviderIsLoaded;
