// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/InterfaceTable.h"

#include <cerrno>

namespace platform::xpc {
namespace {

ArgumentRule rule(const XPCArgument& argument, const NSClassSet& classes) {
  ArgumentRule result{argument.kind, 0, 0};
  if (argument.kind != XPCArgumentKind::Object) return result;
  for (const NSClass* admitted : classes) result.inside |= tagsOfClass(*admitted);
  // A class that is admitted inside need not be one that the method accepts.
  result.outermost = result.inside & tagsOfClass(*argument.declaredClass);
  if (argument.memberClass != nullptr) result.inside &= tagsOfClass(*argument.memberClass);
  return result;
}

std::vector<ArgumentRule> rules(const NSXPCInterface& interface, std::size_t method, bool ofReply) {
  const XPCMethod& described = interface.protocol().methods[method];
  const auto arguments = ofReply ? described.replyArguments : described.arguments;
  std::vector<ArgumentRule> result;
  result.reserve(arguments.size());
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    result.push_back(rule(arguments[i], interface.classesForMethod(method, i, ofReply)));
  }
  return result;
}

void checkFrameSize(const WireWriter& writer) {
  if (writer.frameSize() > kMaxFrameSize)
    throw EncodingError(EMSGSIZE, "a message is larger than 16 MiB");
}

}  // namespace

InterfaceTable::InterfaceTable(std::shared_ptr<NSXPCInterface> interface)
    : interface_(std::move(interface)) {
  const auto methods = interface_->protocol().methods;
  methods_.reserve(methods.size());
  for (std::size_t i = 0; i < methods.size(); ++i) {
    methods_.push_back(
        {methods[i].hasReply, rules(*interface_, i, false), rules(*interface_, i, true)});
  }
}

void encodeValues(WireWriter& writer, const XPCValues& values) {
  for (std::size_t i = 0; i < values.count; ++i) {
    const XPCValue& value = values.values[i];
    if (const auto* small = std::get_if<std::uint32_t>(&value)) {
      writer.u32(*small);
    } else if (const auto* large = std::get_if<std::uint64_t>(&value)) {
      writer.u64(*large);
    } else {
      encodeObject(writer, *std::get_if<std::shared_ptr<NSObject>>(&value));
    }
  }
  checkFrameSize(writer);
}

void encodeValues(WireWriter& writer, std::span<const XPCArgumentRef> arguments) {
  for (const XPCArgumentRef& argument : arguments) {
    if (argument.kind() == XPCArgumentKind::Object) {
      encodeObject(writer, argument.object());
    } else if (argument.kind() == XPCArgumentKind::UInt64) {
      writer.u64(argument.number());
    } else {
      writer.u32(static_cast<std::uint32_t>(argument.number()));
    }
  }
  checkFrameSize(writer);
}

ValuesResult decodeValues(WireReader& reader, const std::vector<ArgumentRule>& rules,
                          XPCValues& values) {
  for (std::size_t i = 0; i < rules.size(); ++i) {
    const ArgumentRule& rule = rules[i];
    XPCValue& value = values.values[i];
    if (rule.kind == XPCArgumentKind::UInt32) {
      value.emplace<std::uint32_t>(reader.u32());
    } else if (rule.kind == XPCArgumentKind::UInt64) {
      value.emplace<std::uint64_t>(reader.u64());
    } else {
      DecodeResult result = decodeObject(reader, rule.outermost, rule.inside);
      if (result.verdict != DecodeVerdict::Accepted) return {result.verdict, i, result.reason};
      value.emplace<std::shared_ptr<NSObject>>(std::move(result.object));
    }
    values.count = i + 1;
    if (reader.failed()) return {DecodeVerdict::Malformed, i, "truncated"};
  }
  if (reader.remaining() != 0)
    return {DecodeVerdict::Malformed, rules.size(), "bytes after the last argument"};
  return {};
}

void clearValues(XPCValues& values) {
  for (std::size_t i = 0; i < values.count; ++i) values.values[i].emplace<std::uint32_t>(0U);
  values.count = 0;
}

}  // namespace platform::xpc
