// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSBundle.h"

#include "platform/foundation/FoundationProvider.h"

namespace platform {
namespace {

constexpr std::string_view kExecutableFolder = "/Contents/MacOS";
constexpr std::string_view kApplicationSuffix = ".app";

}  // namespace

std::shared_ptr<NSBundle> NSBundle::mainBundle() {
  // Never destroyed: connection threads may use it while the process exits.
  static const auto* const bundle = new auto(std::make_shared<NSBundle>());
  return *bundle;
}

std::shared_ptr<NSString> NSBundle::bundlePath() const {
  return foundationProvider().load()->mainBundlePath();
}

std::string bundlePathForExecutable(std::string_view executablePath) {
  const auto slash = executablePath.rfind('/');
  if (slash == std::string_view::npos) return ".";
  const std::string_view folder = executablePath.substr(0, slash);
  if (folder.empty()) return "/";
  if (!folder.ends_with(kExecutableFolder)) return std::string(folder);
  const std::string_view application = folder.substr(0, folder.size() - kExecutableFolder.size());
  const std::string_view name = application.substr(application.rfind('/') + 1);
  const bool isApplication =
      name.size() > kApplicationSuffix.size() && name.ends_with(kApplicationSuffix);
  return std::string(isApplication ? application : folder);
}

}  // namespace platform
