// SPDX-License-Identifier: Apache-2.0

// The rules by which a device is sensitive, in the order in which they are tried.
//
// A rule that names usages applies to an input field, also a constant one, that names one of them,
// and to a collection of any type, at any depth, with everything in it. Whatever else a usage may
// mean counts too: alternatives, whole ranges, the array's usages that a value may select, and a
// number without a page on each page that it can be on. A field without usages has usage 0 of the
// page in force or, as an array, any usage of that page.
//
// Threading: constant.
// Order: rules by which a keyboard is recognised come first.
#pragma once

#include <span>
#include <string_view>

#include "router/ReportDescriptor.h"

namespace router {

/// What makes the rule apply.
enum class Evidence {
  Administrator,
  UnreadableDescriptor,
  Usages,
  BootKeyboard,
  KeyboardNode,
  UsagesBesideKeyboard,  ///< the usages, if the device has a keyboard in this interface or another
  NothingToJudge,        ///< no known usage in any input report or, beside a keyboard, in one
};

struct ClassRule {
  std::string_view words;  ///< what the device is then, for people
  std::span<const UsageRange> usages = {};
  std::string_view usageName = {};  ///< if it is a single usage
  Evidence evidence = Evidence::Usages;
  bool isKeyboard = false;
  /// Not for a physical or logical collection in another one.
  bool ignoresInnerCollections = false;
};

[[nodiscard]] std::span<const ClassRule> classRules();
/// The only rule with this evidence.
[[nodiscard]] const ClassRule& classRule(Evidence evidence);

}  // namespace router
