// The log module that attaches to a diagnostic report what the system log says of the router.
//
// It is there without any doing of the application: one instance is registered with the shared
// logger when the library is loaded, or, where it is linked statically, when the program starts.
//
//   for (const auto& module : platform::KQLogger::sharedLogger().modules()) ...
//
// Threading: any thread. The files are provided, and the log is read, on the caller's thread.
// Ownership: the logger keeps the module. The file's source captures nothing.
// Errors: a log that cannot be read is the error of its file's source, with empty data; providing
//   the file never fails.
// Order: the completion handler runs before provideFilesWithCompletionHandler returns; the log is
//   read when the source is run, each time anew, and its handler runs before it returns.
#pragma once

#include <memory>

#include "platform/kit/KQLogModule.h"

/// The module's identifier: "WLHIDEventRouter".
extern const std::shared_ptr<platform::NSString>
    KQLogModuleIdentifierWLHIDEventRouterLogFileProvider;

class WLHIDEventRouterLogFileProvider final : public platform::KQLogModule,
                                              public platform::KQLogModuleFileProvider {
 public:
  static const platform::NSClass& classObject();
  static std::shared_ptr<WLHIDEventRouterLogFileProvider> init();

  /// Registers a new instance with the shared logger. Runs by itself when the library is loaded; a
  /// further call changes nothing, since the logger keeps one module of an identifier.
  static void load();

  /// One file, "syslog-com.quillmar.hideventrouter.log": the entries of /var/log/system.log (below
  /// the system root) whose first line names the router. Its source answers with the read's error
  /// or null, a null URL, data that is never null, and false.
  void provideFilesWithCompletionHandler(const FilesHandler& handler) override;

  [[nodiscard]] const platform::NSClass& isa() const override { return classObject(); }

 private:
  WLHIDEventRouterLogFileProvider();
};
