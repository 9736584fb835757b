// SPDX-License-Identifier: Apache-2.0

#include "input/InstallationWatch.h"

#include <utility>
#include <vector>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/services/RootFiles.h"
#include "platform/services/SystemRoot.h"

namespace wlhid {

namespace {

using platform::SystemRoot;

/// An installation is several changes of files; it counts when it is quiet.
constexpr std::chrono::milliseconds kQuiet{100};
/// A root that does not exist cannot be watched.
constexpr std::chrono::seconds kMissing{2};

std::unique_ptr<platform::DirectoryWatch> watchOf(const SystemRoot& root) try {
  std::vector<std::string> places;
  for (const auto& layer : root.places().layers) {
    places.emplace_back(layer.jobs);
    places.emplace_back(layer.helpers);
  }
  return platform::DirectoryWatch::begin(platform::openRoot(root), std::move(places));
} catch (const std::exception&) {
  return nullptr;
}

std::string pathOfRoot() try {
  return SystemRoot::current().path();
} catch (const std::exception&) {
  return {};
}

}  // namespace

InstallationWatch& InstallationWatch::shared() {
  static auto* const watch = new InstallationWatch(Loop::shared());
  return *watch;
}

std::shared_ptr<void> InstallationWatch::subscribe(std::function<void()> changed) {
  auto subscription = subscribers_->add(std::move(changed));
  loop_.post([this] { beginHere(); });
  return subscription;
}

/// The process's root may be another one by now, or not exist yet.
void InstallationWatch::beginHere() {
  const std::string path = pathOfRoot();
  if (path.empty() || (watch_ != nullptr && path == root_)) return;
  if (watch_ != nullptr) loop_.unwatch(watch_->descriptor());
  const bool wasMissing = watch_ == nullptr && path == root_;
  root_ = path;
  watch_ = watchOf(SystemRoot::current());
  if (watch_ == nullptr) return beginLater();
  loop_.watch(watch_->descriptor(), [this] { noticed(); });
  if (wasMissing) tell();
}

void InstallationWatch::beginLater() {
  if (subscribers_->isEmpty()) return;
  loop_.cancel(pause_);
  pause_ = loop_.after(kMissing, [this] { beginHere(); });
}

void InstallationWatch::noticed() {
  if (watch_ == nullptr || !watch_->take()) return;
  loop_.cancel(pause_);
  pause_ = loop_.after(kQuiet, [this] { tell(); });
}

/// Each client compares for itself: one may have looked in between, and seen what is over by now.
void InstallationWatch::tell() {
  platform::NSNotificationCenter::defaultCenter()->postNotificationName_object(
      platform::str(WLHIDEventRouterClientInstallationStatusChanged), nullptr);
  subscribers_->tell();
}

}  // namespace wlhid
