// SPDX-License-Identifier: Apache-2.0

#include "platform/kit/KQLogModule.h"

namespace platform {

const NSClass& KQLogModule::classObject() {
  static const NSClass object{"KQLogModule", &NSObject::classObject()};
  return object;
}

const NSClass& KQLogFile::classObject() {
  static const NSClass object{"KQLogFile", &NSObject::classObject()};
  return object;
}

KQLogFile::KQLogFile(std::shared_ptr<NSString> name, std::shared_ptr<NSString> localizedDescription,
                     std::shared_ptr<NSString> categoryName, Source source)
    : name_(std::move(name)),
      localizedDescription_(std::move(localizedDescription)),
      categoryName_(std::move(categoryName)),
      source_(std::move(source)) {}

std::shared_ptr<KQLogFile> KQLogFile::initWithName_localizedDescription_categoryName_source(
    std::shared_ptr<NSString> name, std::shared_ptr<NSString> localizedDescription,
    std::shared_ptr<NSString> categoryName, Source source) {
  return std::make_shared<KQLogFile>(std::move(name), std::move(localizedDescription),
                                     std::move(categoryName), std::move(source));
}

}  // namespace platform
