// What the last delivery of a recorded device will be, worked out before it is played.
//
// Threading: any thread. Ownership: values. Errors: Failure, "FILE: cause". Order: none.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "router/Recording.h"
#include "tool/RouteSession.h"

namespace tool {

/// A usage as the router's tag dictionary names it: page << 16 | usage.
using UsageCode = std::uint64_t;

/// The delivery after which nothing more comes of `recording` when it is played once to a client
/// that asked for `tags` (all where empty). `fileName` is for errors.
[[nodiscard]] LastDelivery lastDeliveryOf(const router::Recording& recording,
                                          const std::set<UsageCode>& tags,
                                          const std::string& fileName);

}  // namespace tool
