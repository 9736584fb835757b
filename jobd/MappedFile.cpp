// SPDX-License-Identifier: Apache-2.0

#include "jobd/MappedFile.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace jobd {

using platform::ServiceError;
using platform::ServiceErrorCode;

MappedFile::MappedFile(int descriptor, const std::string& name) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0)
    throw platform::fileSystemError("cannot examine " + name, errno);
  if (!S_ISREG(status.st_mode))
    throw ServiceError(ServiceErrorCode::FileSystem, name + " is not a regular file");
  if (static_cast<std::uint64_t>(status.st_size) > platform::kMaximumHelperBytes)
    throw ServiceError(ServiceErrorCode::FileSystem, name + " is too large for a helper");
  if (status.st_size == 0) return;  // an empty file cannot be mapped
  size_ = static_cast<std::size_t>(status.st_size);
  address_ = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (address_ == MAP_FAILED) {
    address_ = nullptr;
    throw platform::fileSystemError("cannot read " + name, errno);
  }
}

MappedFile::~MappedFile() {
  if (address_ != nullptr) ::munmap(address_, size_);
}

}  // namespace jobd
