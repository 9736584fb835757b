// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/WLHIDEventRouterLogFileProvider.h"

#include <stdexcept>

#include "diagnostics/LogExcerpt.h"
#include "platform/foundation/TextFile.h"
#include "platform/kit/KQLogger.h"
#include "platform/services/SystemRoot.h"

using namespace platform;

const std::shared_ptr<NSString> KQLogModuleIdentifierWLHIDEventRouterLogFileProvider =
    str("WLHIDEventRouter");

namespace {

diagnostics::LogExcerpt systemLogExcerpt() {
  try {
    const std::string path = SystemRoot::current().systemLog().string();
    return diagnostics::readLogExcerpt(NSURL::fileURLWithPath(NSString::stringWithUTF8(path)));
  } catch (const std::runtime_error& noRoot) {
    auto info =
        NSDictionary::dictionaryWithEntries({{str(NSLocalizedDescriptionKey), str(noRoot.what())}});
    auto error = NSError::errorWithDomain_code_userInfo(str(NSCocoaErrorDomain),
                                                        NSFileReadNoSuchFileError, info);
    return {std::move(error), NSData::dataWithBytes({})};
  }
}

void provideExcerpt(const std::shared_ptr<KQLogFile>& /*file*/,
                    const KQLogFile::ResultHandler& handler) {
  const auto excerpt = systemLogExcerpt();
  handler(excerpt.error, nullptr, excerpt.data, false);
}

}  // namespace

const NSClass& WLHIDEventRouterLogFileProvider::classObject() {
  static const NSClass object{"WLHIDEventRouterLogFileProvider", &KQLogModule::classObject()};
  return object;
}

WLHIDEventRouterLogFileProvider::WLHIDEventRouterLogFileProvider()
    : KQLogModule(KQLogModuleIdentifierWLHIDEventRouterLogFileProvider,
                  str("WLHIDEventRouter logfile provider")) {}

std::shared_ptr<WLHIDEventRouterLogFileProvider> WLHIDEventRouterLogFileProvider::init() {
  return std::shared_ptr<WLHIDEventRouterLogFileProvider>(new WLHIDEventRouterLogFileProvider);
}

void WLHIDEventRouterLogFileProvider::load() {
  KQLogger::sharedLogger().addModule(init());
}

void WLHIDEventRouterLogFileProvider::provideFilesWithCompletionHandler(
    const FilesHandler& handler) {
  auto file = KQLogFile::initWithName_localizedDescription_categoryName_source(
      str("syslog-com.quillmar.hideventrouter.log"),
      str("Excerpts from system.log covering com.quillmar.hideventrouter"), str("HID Event Router"),
      provideExcerpt);
  handler(nullptr, {std::move(file)});
}

extern "C" const bool WLHIDEventRouterLogFileProviderIsLoaded = [] {
  WLHIDEventRouterLogFileProvider::load();
  return true;
}();
