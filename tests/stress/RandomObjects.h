// SPDX-License-Identifier: Apache-2.0

// Random graphs of everything that can be sent over the wire.
//
// Threading: one thread at a time.
// Order: the same seed produces the same graphs.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include "platform/foundation/NSObject.h"

namespace stress {

class RandomObjects {
 public:
  explicit RandomObjects(std::uint64_t seed) : random_(seed) {}

  /// Any object that can be sent, or null: most of them small, some wide, some as deep as a frame
  /// allows.
  std::shared_ptr<platform::NSObject> graph();

 private:
  using Object = std::shared_ptr<platform::NSObject>;

  std::uint64_t below(std::uint64_t bound) { return random_() % bound; }
  std::uint64_t bits();
  std::size_t length();
  double real();
  std::string text();
  Object chain(std::size_t depth);
  Object any(std::size_t depth);
  Object leaf();
  Object number();
  Object collection(std::size_t depth);
  Object array(std::size_t depth);
  Object dictionary(std::size_t depth);
  Object error(std::size_t depth);
  Object elementValues();

  std::mt19937_64 random_;
  std::size_t budget_ = 0;  ///< members that the graph may still get
};

}  // namespace stress
