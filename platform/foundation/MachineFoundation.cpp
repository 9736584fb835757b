// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <thread>

#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/PrintableText.h"
#include "platform/foundation/PropertyListCoding.h"
#include "platform/foundation/ReadAhead.h"
#include "platform/foundation/StandardError.h"

namespace platform {
namespace {

// Far larger than any executable or property list here; a sparse file of terabytes must not cause
// an allocation of that size.
constexpr off_t kLargestFile = off_t{1} << 30;

// Large enough for few system calls, small enough to stay in the processor's cache until it has
// been examined.
constexpr std::size_t kPiece = std::size_t{256} * 1024;

// From this size on, a second thread that reads ahead is worth its cost.
constexpr off_t kWorthReadingAhead = off_t{4} << 20;

using PieceHandler = FoundationProvider::PieceHandler;

class OpenFile {
 public:
  // Non-blocking, so that a FIFO in place of the file cannot hang the caller before it is detected.
  explicit OpenFile(const char* path)
      : descriptor_(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)),
        openError_(errno) {}
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }

  /// 0 for an open regular file, otherwise the errno that says why it is not one.
  [[nodiscard]] int fault() const {
    struct stat status {};
    if (descriptor_ < 0) return openError_;
    if (::fstat(descriptor_, &status) != 0) return errno;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    return S_ISREG(status.st_mode) ? 0 : ENOTSUP;
  }

  [[nodiscard]] bool isWorthReadingAhead() const {
    struct stat status {};
    return ::fstat(descriptor_, &status) == 0 && status.st_size >= kWorthReadingAhead &&
           std::thread::hardware_concurrency() > 1;
  }

  /// The size of a regular file within the limit, or −1.
  [[nodiscard]] off_t size() const {
    struct stat status {};
    if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0) return -1;
    return S_ISREG(status.st_mode) && status.st_size <= kLargestFile ? status.st_size : -1;
  }

  /// Like read(2), but retries after EINTR.
  [[nodiscard]] ssize_t read(std::span<char> room) const {
    ssize_t got = 0;
    do {
      got = ::read(descriptor_, room.data(), room.size());
    } while (got < 0 && errno == EINTR);
    return got;
  }

  [[nodiscard]] bool readWhole(std::span<std::uint8_t> room) const {
    while (!room.empty()) {
      const ssize_t got = ::read(descriptor_, room.data(), room.size());
      if (got > 0) {
        room = room.subspan(static_cast<std::size_t>(got));
      } else if (got == 0 || errno != EINTR) {
        return false;
      }
    }
    return true;
  }

 private:
  const int descriptor_;
  const int openError_;  ///< only meaningful without a descriptor
};

/// Null if reading ahead is not worthwhile or not possible.
std::unique_ptr<ReadAhead> readerAheadOf(const OpenFile& file, const PieceHandler& look) {
  if (!file.isWorthReadingAhead()) return nullptr;
  try {
    return std::make_unique<ReadAhead>([&file](std::span<char> room) { return file.read(room); },
                                       look);
  } catch (const std::exception&) {
    return nullptr;
  }
}

int takeAll(ReadAhead& reader, const PieceHandler& take) {
  for (;;) {
    const ReadAhead::Piece piece = reader.next();
    if (piece.bytes.empty() || !take(piece.bytes)) return piece.error;
  }
}

int takeAll(const OpenFile& file, const PieceHandler& look, const PieceHandler& take) {
  const std::unique_ptr<char[]> room(new char[kPiece]);
  for (;;) {
    const ssize_t got = file.read({room.get(), kPiece});
    if (got < 0) return errno;
    const std::string_view piece(room.get(), static_cast<std::size_t>(got));
    if (got == 0 || !look(piece) || !take(piece)) return 0;
  }
}

class MachineFoundation final : public FoundationProvider {
 public:
  std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path) override {
    const std::string& name = path->UTF8String();
    if (name.find('\0') != std::string::npos) return nullptr;
    const OpenFile file(name.c_str());
    const off_t size = file.size();
    if (size < 0) return nullptr;
    bool whole = false;
    try {
      auto data = NSData::dataWithLength(
          static_cast<std::size_t>(size),
          [&](std::span<std::uint8_t> room) { whole = file.readWhole(room); });
      return whole ? data : nullptr;
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }

  int readFile(const std::shared_ptr<NSString>& path, const PieceHandler& look,
               const PieceHandler& take) override {
    const std::string& name = path->UTF8String();
    if (name.find('\0') != std::string::npos) return ENOENT;
    const OpenFile file(name.c_str());
    if (const int fault = file.fault(); fault != 0) return fault;
    if (const auto reader = readerAheadOf(file, look)) return takeAll(*reader, take);
    return takeAll(file, look, take);
  }

  std::shared_ptr<NSString> mainBundlePath() override {
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? nullptr : NSString::stringWithUTF8(bundlePathForExecutable(executable.native()));
  }

  std::shared_ptr<NSObject> propertyListWithData(const std::shared_ptr<NSData>& data,
                                                 NSPropertyListFormat* returnFormat,
                                                 std::shared_ptr<NSError>* returnError) override {
    return readPropertyList(*data, returnFormat, returnError);
  }

  std::shared_ptr<NSNotificationCenter> defaultCenter() override { return center_; }

  void log(std::string_view text) override {
    constexpr std::size_t kLongestLine = 4000;  // characters
    writeLineToStandardError(printableLine(text, kLongestLine));
  }

 private:
  const std::shared_ptr<NSNotificationCenter> center_ = NSNotificationCenter::center();
};

}  // namespace

std::shared_ptr<FoundationProvider> machineFoundationProvider() {
  static const auto& provider =
      *new std::shared_ptr<FoundationProvider>(std::make_shared<MachineFoundation>());
  return provider;
}

}  // namespace platform
