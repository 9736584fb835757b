// SPDX-License-Identifier: Apache-2.0

// Log modules: parts of a program that supply files for a diagnostic report.
//
// Threading: a module is called on the thread that assembles the report and may call the handlers
//   on that thread before it returns.
// Ownership: the logger owns the modules; the caller owns the files.
// Errors: passed to the handler.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/NSURL.h"

namespace platform {

class WLHID_EXPORT KQLogModule : public NSObject {
 public:
  static const NSClass& classObject();

  [[nodiscard]] const std::shared_ptr<NSString>& identifier() const { return identifier_; }
  [[nodiscard]] const std::shared_ptr<NSString>& name() const { return name_; }
  [[nodiscard]] const NSClass& isa() const override { return classObject(); }

 protected:
  /// initWithIdentifier:name:
  KQLogModule(std::shared_ptr<NSString> identifier, std::shared_ptr<NSString> name)
      : identifier_(std::move(identifier)), name_(std::move(name)) {}

 private:
  const std::shared_ptr<NSString> identifier_;
  const std::shared_ptr<NSString> name_;
};

class WLHID_EXPORT KQLogFile : public NSObject {
 public:
  /// (error or null, URL or null, data or null, flag): either an existing file or the bytes
  /// themselves. The flag says whether the file at the URL may be removed after it has been read.
  using ResultHandler = std::function<void(std::shared_ptr<NSError>, std::shared_ptr<NSURL>,
                                           std::shared_ptr<NSData>, bool)>;
  using Source = std::function<void(const std::shared_ptr<KQLogFile>&, const ResultHandler&)>;

  static const NSClass& classObject();
  static std::shared_ptr<KQLogFile> initWithName_localizedDescription_categoryName_source(
      std::shared_ptr<NSString> name, std::shared_ptr<NSString> localizedDescription,
      std::shared_ptr<NSString> categoryName, Source source);

  [[nodiscard]] const std::shared_ptr<NSString>& name() const { return name_; }
  [[nodiscard]] const std::shared_ptr<NSString>& localizedDescription() const {
    return localizedDescription_;
  }
  [[nodiscard]] const std::shared_ptr<NSString>& categoryName() const { return categoryName_; }
  [[nodiscard]] const Source& source() const { return source_; }
  [[nodiscard]] const NSClass& isa() const override { return classObject(); }

  KQLogFile(std::shared_ptr<NSString> name, std::shared_ptr<NSString> localizedDescription,
            std::shared_ptr<NSString> categoryName, Source source);

 private:
  const std::shared_ptr<NSString> name_;
  const std::shared_ptr<NSString> localizedDescription_;
  const std::shared_ptr<NSString> categoryName_;
  const Source source_;
};

/// A module that supplies files.
class WLHID_EXPORT KQLogModuleFileProvider {
 public:
  using FilesHandler =
      std::function<void(std::shared_ptr<NSError>, std::vector<std::shared_ptr<KQLogFile>>)>;
  virtual void provideFilesWithCompletionHandler(const FilesHandler& handler) = 0;

 protected:
  ~KQLogModuleFileProvider() = default;
};

}  // namespace platform
