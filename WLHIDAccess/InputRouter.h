// SPDX-License-Identifier: Apache-2.0

// The router that this application brings along: is it installed, and if not, why not; installing
// and removing it.
//
//   if (const auto presence = wlhid::Router::presence(); !presence) {
//     std::cerr << presence.text << '\n';
//     wlhid::Router::install("Pen Studio needs your pen's pressure.");
//   }
//
// Threading: any thread. install() and remove() wait for the person who is asked; those that take
//   an executor run there instead and return at once.
// Ownership: nothing is kept but the consent.
// Errors: install() and remove() throw wlhid::Error.
// Order: on success all clients of this process have been told before install() returns.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "WLHIDAccess/InputWords.h"
#include "platform/foundation/Export.h"

namespace wlhid {

enum class PresenceState {
  Present,           ///< installed, with the version that this application brings
  NotInstalled,      ///< there is none
  OtherVersion,      ///< there is one, but of another version
  InstalledUnknown,  ///< there is one, but it or its version cannot be read
  OwnCopyUnknown,    ///< the copy that this application brings is missing or cannot be read
};

struct Presence {
  PresenceState state = PresenceState::NotInstalled;
  std::string installedVersion;  ///< empty if unknown
  std::string ownVersion;        ///< empty if unknown
  std::string text;              ///< one sentence for people: what is there, and what to do
  explicit operator bool() const { return state == PresenceState::Present; }
};

/// Runs what it is given, on a thread of its owner's choice.
using Executor = std::function<void(std::function<void()> work)>;
/// Null: it worked.
using Done = std::function<void(const Error* error)>;

/// A person's answer to the question whether the router may be installed or removed.
enum class Consent {
  Given,
  Denied,
  Canceled,
  Impossible,  ///< there is nobody to ask
};
/// Asks; `prompt` is the application's own words, or the platform's if it gave none.
using ConsentAgent = std::function<Consent(const std::string& prompt)>;

struct WLHID_EXPORT Router {
  /// Examined afresh each time.
  [[nodiscard]] static Presence presence();

  static void install(const std::string& prompt = {});
  static void remove(const std::string& prompt = {});
  static void install(const std::string& prompt, const Executor& executor, Done done);
  static void remove(const std::string& prompt, const Executor& executor, Done done);

  /// Where this application's Contents/ is, with the router that it brings, for programs that an
  /// interpreter runs and whose own directory is not theirs. To be called first.
  static void useBundle(const std::string& directory);

  /// How this application asks on a user's own root, in place of a question in the terminal; null
  /// brings that back. On the system's own root the system asks, in a window of its own.
  static void setConsentAgent(ConsentAgent agent);
};

}  // namespace wlhid
