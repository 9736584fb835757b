// SPDX-License-Identifier: Apache-2.0

// Every truncation and every flipped bit of the first 256 bytes of each message of the conformance
// set: the connection layer must do what the second implementation of the wire page says.
//
// short takes the messages up to 4 KiB with each bit of their first 32 bytes, and the larger ones
// truncated around their ends; long takes all bits of all.
#include <algorithm>
#include <set>

#include "platform/xpc/Wire.h"
#include "tests/conformance/wire/WireJudge.h"
#include "tests/conformance/wire/WireReceiver.h"
#include "tests/stress/Stress.h"

using namespace conformance;

namespace {

constexpr std::size_t kLarge = 4096;
constexpr std::size_t kSweptBytes = 256;
constexpr std::size_t kSweptBytesShort = 32;

class Sweep {
 public:
  explicit Sweep(stress::Findings& findings) : findings_(findings) {}

  void compare(Receiver receiver, std::span<const std::uint8_t> bytes, const std::string& what) {
    const Judgement judged = judge(receiver, bytes);
    const Observation observed = observe(receiver, bytes);
    ++streams_;
    if (judged.state == StreamState::Incomplete) ++awaited_;
    if (observed.events == judged.events && observed.answers == judged.answers) return;
    std::string difference = what + ": the layer says";
    for (const auto& event : observed.events) difference += " [" + event + "]";
    difference += ", the page";
    for (const auto& event : judged.events) difference += " [" + event + "]";
    findings_.demand(false, difference);
  }
  [[nodiscard]] std::uint64_t streams() const { return streams_; }
  [[nodiscard]] std::uint64_t awaited() const { return awaited_; }

 private:
  stress::Findings& findings_;
  std::uint64_t streams_ = 0;
  std::uint64_t awaited_ = 0;
};

/// Where a message is truncated: everywhere, or if it is large, at its beginning, at its end and
/// around the powers of two, where buffers grow.
std::set<std::size_t> cuts(std::size_t size) {
  std::set<std::size_t> result;
  const auto around = [&](std::size_t middle, std::size_t reach) {
    for (std::size_t at = middle > reach ? middle - reach : 0; at < std::min(size, middle + reach);
         ++at)
      result.insert(at);
  };
  around(0, std::min(size, kLarge) == size ? size : kSweptBytes);
  around(size, 16);
  for (std::size_t power = kLarge; power < size; power *= 2) around(power, 2);
  return result;
}

void truncate(Sweep& sweep, const WireMessage& message) {
  const std::span<const std::uint8_t> all(message.bytes);
  for (const std::size_t length : cuts(all.size()))
    sweep.compare(message.receiver, all.first(length),
                  message.name + " cut to " + std::to_string(length));
}

void flip(Sweep& sweep, const WireMessage& message, std::size_t bytes) {
  Bytes flipped(message.bytes);
  for (std::size_t bit = 0; bit < std::min(bytes, flipped.size()) * 8; ++bit) {
    const auto mask = static_cast<std::uint8_t>(1U << (bit % 8));
    flipped[bit / 8] ^= mask;
    sweep.compare(message.receiver, flipped, message.name + " with bit " + std::to_string(bit));
    flipped[bit / 8] ^= mask;
  }
}

/// The header alone decides whether more is awaited, so for every length of every message it must
/// do so until the frame is complete.
std::uint64_t checkEveryLength(const WireMessage& message, stress::Findings& findings) {
  const std::span<const std::uint8_t> all(message.bytes);
  platform::xpc::FrameHeader header;
  if (all.size() < platform::xpc::kFrameHeaderSize) return 0;
  if (platform::xpc::readFrameHeader(all.data(), header) != platform::xpc::HeaderVerdict::Valid)
    return 0;
  const std::size_t whole = platform::xpc::kFrameHeaderSize + std::size_t{header.length};
  std::uint64_t checked = 0;
  for (std::size_t length = platform::xpc::kFrameHeaderSize; length < std::min(whole, all.size());
       length += length < kLarge ? 1 : length / 7) {
    const Judgement judged = judge(message.receiver, all.first(length));
    if (judged.state != StreamState::Incomplete)
      findings.demand(false,
                      message.name + " cut to " + std::to_string(length) + " is not awaited");
    ++checked;
  }
  return checked;
}

void sweepAll(const stress::Work& work, stress::Findings& findings) {
  Sweep sweep(findings);
  std::uint64_t lengths = 0;
  for (const WireMessage& message : wireMessages()) {
    const bool large = message.bytes.size() > kLarge;
    truncate(sweep, message);
    lengths += checkEveryLength(message, findings);
    if (!work.isShort()) flip(sweep, message, kSweptBytes);
    if (work.isShort() && !large) flip(sweep, message, kSweptBytesShort);
  }
  findings.figure("wire sweep, messages", std::uint64_t{wireMessages().size()});
  findings.figure("wire sweep, truncated and flipped streams judged alike", sweep.streams());
  findings.figure("wire sweep, of them awaiting more", sweep.awaited());
  findings.demand(lengths > wireMessages().size(), "lengths of whole frames were checked");
}

}  // namespace

int main(int argc, char** argv) {
  return stress::run(argc, argv, sweepAll);
}
