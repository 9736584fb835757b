// SPDX-License-Identifier: Apache-2.0

// Encodes objects and decodes them again; every object has exactly one encoding.
//
// Threading: any thread, but an array must not change while it is encoded.
// Ownership: decoded objects own their bytes and keep nothing of the input.
// Errors: encoding throws EncodingError; decoding returns a verdict, and creates no object of a
//   class that is not admitted and none that follows it.
// Order: members keep their order; a dictionary's entries are sent in the order of their keys'
//   bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/foundation/NSObject.h"
#include "platform/xpc/Wire.h"

namespace platform::xpc {

/// How an object is marked on the wire.
enum class ObjectTag : std::uint8_t {
  Nil = 0,
  Data = 1,
  String = 2,
  Boolean = 3,
  Signed = 4,
  Unsigned = 5,
  Double = 6,
  Date = 7,
  URL = 8,
  Array = 9,
  MutableArray = 10,
  Dictionary = 11,
  Error = 12,
  ElementValue = 13,
  IOObject = 14,
  ElementValueList = 15,
};
inline constexpr std::uint8_t kObjectTagCount = 16;

inline constexpr std::size_t kMaxObjectDepth = 64;
/// The minimum size of an element value: three 32-bit and two 64-bit numbers and the size of its
/// bytes.
inline constexpr std::size_t kElementValueMinimum = 29;

/// A set of tags, one bit each. Nil needs no admission.
using TagSet = std::uint32_t;
[[nodiscard]] constexpr TagSet tagBit(ObjectTag tag) {
  return TagSet{1} << static_cast<unsigned>(tag);
}
/// The tags of objects whose class is `admitted` or derives from it.
[[nodiscard]] TagSet tagsOfClass(const NSClass& admitted);

class EncodingError : public std::runtime_error {
 public:
  EncodingError(int code, const std::string& what) : std::runtime_error(what), code_(code) {}
  [[nodiscard]] int code() const { return code_; }  ///< EINVAL or EMSGSIZE

 private:
  int code_;
};

/// Appends `object`, which may be null.
void encodeObject(WireWriter& writer, const NSObject* object);
inline void encodeObject(WireWriter& writer, const std::shared_ptr<NSObject>& object) {
  encodeObject(writer, object.get());
}

enum class DecodeVerdict { Accepted, Refused, Malformed };

struct DecodeResult {
  DecodeVerdict verdict = DecodeVerdict::Accepted;
  std::shared_ptr<NSObject> object;
  std::string_view reason = {};  ///< a constant: the refused class or what is malformed
};

/// Reads one object. `outermost` is what the object itself may be, `inside` what may occur anywhere
/// within it.
DecodeResult decodeObject(WireReader& reader, TagSet outermost, TagSet inside);

}  // namespace platform::xpc
