// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/ByteQueue.h"

#include <algorithm>
#include <cstring>

namespace platform::xpc {
namespace {

/// The smallest piece, in bytes: most connections never have more unsent than their hello.
constexpr std::size_t kMinPiece = 512;

}  // namespace

void ByteQueue::Piece::take(std::span<const std::uint8_t> more) {
  std::memcpy(bytes.get() + end, more.data(), more.size());
  end += more.size();
}

std::span<const std::uint8_t> ByteQueue::front() const {
  if (empty()) return {};
  const Piece& piece = pieces_[first_];
  return {piece.bytes.get() + piece.begin, piece.size()};
}

std::size_t ByteQueue::capacity() const {
  std::size_t sum = 0;
  for (const Piece& piece : pieces_) {
    if (piece.bytes) sum += piece.capacity;
  }
  return sum;
}

void ByteQueue::append(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return;
  std::size_t at =
      pieces_.empty() || pieces_.back().room() == 0 ? pieces_.size() : pieces_.size() - 1;
  makeRoomFor(bytes.size());
  size_ += bytes.size();
  for (; !bytes.empty(); ++at) {
    const std::size_t count = std::min(pieces_[at].room(), bytes.size());
    pieces_[at].take(bytes.first(count));
    bytes = bytes.subspan(count);
  }
}

void ByteQueue::makeRoomFor(std::size_t count) {
  const std::size_t before = pieces_.size();
  std::size_t room = pieces_.empty() ? 0 : pieces_.back().room();
  try {
    while (room < count) {
      pieces_.emplace_back(
          std::clamp(std::max(size_ + room, count - room), kMinPiece, kPieceLimit));
      room += pieces_.back().capacity;
    }
  } catch (...) {
    pieces_.erase(pieces_.begin() + static_cast<std::ptrdiff_t>(before), pieces_.end());
    throw;
  }
}

void ByteQueue::prepend(std::span<const std::uint8_t> bytes) {
  if (empty() || bytes.empty()) return append(bytes);
  Piece piece(bytes.size());
  piece.take(bytes);
  pieces_.insert(pieces_.begin() + static_cast<std::ptrdiff_t>(first_), std::move(piece));
  size_ += bytes.size();
}

void ByteQueue::drop(std::size_t count) {
  size_ -= count;
  while (count > 0) {
    Piece& piece = pieces_[first_];
    const std::size_t taken = std::min(count, piece.size());
    piece.begin += taken;
    count -= taken;
    if (piece.size() > 0) return;
    if (first_ + 1 == pieces_.size()) break;  // kept for what comes next
    piece.bytes.reset();
    ++first_;
  }
  forgetDropped();
}

void ByteQueue::forgetDropped() {
  if (empty() || first_ >= pieces_.size() / 2) {  // each piece moves at most once per freed one
    pieces_.erase(pieces_.begin(), pieces_.begin() + static_cast<std::ptrdiff_t>(first_));
    first_ = 0;
  }
  if (empty() && !pieces_.empty()) pieces_.back().begin = pieces_.back().end = 0;
}

void ByteQueue::clear() {
  std::vector<Piece>().swap(pieces_);
  first_ = 0;
  size_ = 0;
}

}  // namespace platform::xpc
