// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/NSXPCInterface.h"

#include <stdexcept>
#include <string>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/xpc/NSXPCConnection.h"

namespace platform {
namespace {

const NSClassSet& propertyListClasses() {
  static const auto* const classes = new NSClassSet{
      &NSString::classObject(), &NSNumber::classObject(), &NSData::classObject(),
      &NSDate::classObject(),   &NSArray::classObject(),  &NSDictionary::classObject()};
  return *classes;
}

bool holdsObjects(const NSClass& c) {
  return c.isSubclassOfClass(NSArray::classObject()) ||
         c.isSubclassOfClass(NSDictionary::classObject()) ||
         c.isSubclassOfClass(NSError::classObject());
}

NSClassSet defaultClasses(const XPCArgument& argument) {
  if (argument.kind != XPCArgumentKind::Object) return {};
  NSClassSet classes{argument.declaredClass};
  if (holdsObjects(*argument.declaredClass)) {
    classes.insert(classes.end(), propertyListClasses().begin(), propertyListClasses().end());
  }
  return classes;
}

std::vector<NSClassSet> defaults(std::span<const XPCArgument> arguments) {
  std::vector<NSClassSet> sets;
  sets.reserve(arguments.size());
  for (const XPCArgument& argument : arguments) sets.push_back(defaultClasses(argument));
  return sets;
}

}  // namespace

std::shared_ptr<NSXPCInterface> NSXPCInterface::interfaceWithProtocol(const XPCProtocol& protocol) {
  return xpcProvider().load()->interfaceWithProtocol(protocol);
}

NSXPCInterface::NSXPCInterface(const XPCProtocol& protocol) : protocol_(protocol) {
  slots_.reserve(protocol.methods.size());
  for (const XPCMethod& method : protocol.methods) {
    slots_.push_back({defaults(method.arguments), defaults(method.replyArguments)});
  }
}

void NSXPCInterface::setClasses_forSelector_argumentIndex_ofReply(const NSClassSet& classes,
                                                                  std::string_view selector,
                                                                  std::size_t argumentIndex,
                                                                  bool ofReply) {
  const std::size_t method = protocol_.indexOfSelector(selector);
  auto& sets = ofReply ? slots_[method].reply : slots_[method].arguments;
  if (argumentIndex >= sets.size()) {
    throw std::invalid_argument(std::string(selector) + " has no argument " +
                                std::to_string(argumentIndex));
  }
  sets[argumentIndex] = classes;
}

const NSClassSet& NSXPCInterface::classesForMethod(std::size_t method, std::size_t argumentIndex,
                                                   bool ofReply) const {
  const Slots& slots = slots_.at(method);
  return (ofReply ? slots.reply : slots.arguments).at(argumentIndex);
}

}  // namespace platform
