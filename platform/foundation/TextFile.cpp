// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/TextFile.h"

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/ErrorTexts.h"
#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/UTF8Validator.h"

namespace platform {
namespace {

/// The system's text for an error, unless it is not UTF-8.
std::string systemText(int number) {
  return textOfError(NSPOSIXErrorDomain, number).value_or("error " + std::to_string(number));
}

std::shared_ptr<NSError> systemError(int number) {
  auto info = NSDictionary::dictionaryWithEntries(
      {{str(NSLocalizedDescriptionKey), str(systemText(number))}});
  return NSError::errorWithDomain_code_userInfo(str(NSPOSIXErrorDomain), number, info);
}

std::int64_t codeOf(int number) {
  if (number == ENOENT) return NSFileReadNoSuchFileError;
  if (number == EACCES || number == EPERM) return NSFileReadNoPermissionError;
  return NSFileReadUnknownError;
}

std::shared_ptr<NSError> readError(std::int64_t code, const std::shared_ptr<NSString>& path,
                                   const std::string& why,
                                   const std::shared_ptr<NSError>& underlying = nullptr) {
  const std::string what = "Cannot read " + (path ? path->UTF8String() : "the file") + ": " + why;
  std::vector<NSDictionary::Entry> entries{{str(NSLocalizedDescriptionKey), str(what)}};
  if (path) entries.push_back({str(NSFilePathErrorKey), path});
  if (underlying) entries.push_back({str(NSUnderlyingErrorKey), underlying});
  return NSError::errorWithDomain_code_userInfo(str(NSCocoaErrorDomain), code,
                                                NSDictionary::dictionaryWithEntries(entries));
}

}  // namespace

std::shared_ptr<NSError> readUTF8TextFile(const std::shared_ptr<NSURL>& url,
                                          const std::function<void(std::string_view piece)>& take) {
  const auto path = url ? url->path() : nullptr;
  if (!path) return readError(NSFileReadUnknownError, nullptr, "not the URL of a file");
  UTF8Validator validator;
  bool isUTF8 = true;
  const int failure = foundationProvider().load()->readFile(
      path, [&](std::string_view piece) { return isUTF8 = validator.accept(piece); },
      [&](std::string_view piece) {
        take(piece);
        return true;
      });
  if (failure != 0) {
    return readError(codeOf(failure), path, systemText(failure), systemError(failure));
  }
  if (isUTF8 && validator.isComplete()) return nullptr;
  return readError(NSFileReadInapplicableStringEncodingError, path, "the text is not UTF-8");
}

}  // namespace platform
