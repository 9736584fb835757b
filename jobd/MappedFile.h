// SPDX-License-Identifier: Apache-2.0

// A file's bytes, without copying them into memory.
//
// Threading: any thread.
// Ownership: owns the mapping, not the descriptor.
// Errors: ServiceError if the file is not regular, too large for a helper or cannot be mapped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace jobd {

class MappedFile {
 public:
  /// `name` is for error messages.
  MappedFile(int descriptor, const std::string& name);
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile();

  [[nodiscard]] std::span<const std::uint8_t> bytes() const {
    return {static_cast<const std::uint8_t*>(address_), size_};
  }

 private:
  void* address_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace jobd
