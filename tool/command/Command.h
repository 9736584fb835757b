// SPDX-License-Identifier: Apache-2.0

// Shared by the verbs of the command: how to add one, how it fails, what the exit status means.
//
// Threading: the main thread.
// Ownership: the parser owns the options of the chosen verb.
// Errors: a verb throws Failure (exit status 1) or UsageFailure (exit status 2); CommandLine.h
//   prints the text as one line "wlhid: …" on standard error.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/foundation/NSError.h"

namespace CLI {
class App;
}  // namespace CLI

namespace tool {

/// The exit status of the command.
enum ExitStatus : int {
  ExitDone = 0,        ///< success, or the answer is yes
  ExitNotSo = 1,       ///< failure, or the answer is no (not installed)
  ExitWrongUsage = 2,  ///< invalid command line; nothing was done
};

/// Why a verb failed.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Why a command line is wrong although it parsed.
class UsageFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Runs after the command line has been parsed. Returns the exit status.
using Action = std::function<int()>;

void addStatusVerb(CLI::App& app, Action& chosen);
void addInstallVerb(CLI::App& app, Action& chosen);
void addUninstallVerb(CLI::App& app, Action& chosen);
void addInspectVerb(CLI::App& app, Action& chosen);
void addSessionsVerb(CLI::App& app, Action& chosen);
void addDevicesVerb(CLI::App& app, Action& chosen);
void addGrantVerbs(CLI::App& app, Action& chosen);
void addRouteVerb(CLI::App& app, Action& chosen);
void addLogVerb(CLI::App& app, Action& chosen);
void addReportVerb(CLI::App& app, Action& chosen);
void addDoctorVerb(CLI::App& app, Action& chosen);
void addDescriptorVerb(CLI::App& app, Action& chosen);
void addRecordVerb(CLI::App& app, Action& chosen);
void addMeasureVerb(CLI::App& app, Action& chosen);
void addMonitorVerb(CLI::App& app, Action& chosen);
void addTestVerb(CLI::App& app, Action& chosen);
void addPictureVerb(CLI::App& app, Action& chosen);
void addSignVerb(CLI::App& app, Action& chosen);

/// One printable line, with room for the longest path.
[[nodiscard]] std::string oneLine(std::string_view text);
/// An error for people: its description followed by domain and code.
[[nodiscard]] std::string describeError(const std::shared_ptr<platform::NSError>& error);
/// "No such file or directory" for ENOENT and so on.
[[nodiscard]] std::string describeErrno(int number);
/// Writes "wlhid: text" as one line to standard error.
void complain(std::string_view text);
/// Writes all of `text` to standard output. Throws Failure if that is impossible, but not for a
/// closed pipe.
void print(std::string_view text);

}  // namespace tool
