// SPDX-License-Identifier: Apache-2.0

// decode(encode(x)) equals x, and what is accepted encodes to the bytes that were read, for random
// object graphs: 200,000 of them short, 10 million long. One changed copy of each graph's bytes is
// decoded as well; if it is accepted, it must encode to itself too.
#include <algorithm>
#include <random>
#include <thread>
#include <vector>

#include "platform/xpc/ObjectCoder.h"
#include "tests/stress/RandomObjects.h"
#include "tests/stress/Stress.h"

using namespace platform;
using namespace platform::xpc;

namespace {

constexpr TagSet kEverything = ~TagSet{0};
constexpr std::uint64_t kSeed = 20261121;  // the same graphs in every run

struct Tally {
  std::uint64_t graphs = 0;
  std::uint64_t bytes = 0;
  std::uint64_t changedAccepted = 0;
  std::uint64_t changedRefused = 0;

  Tally& operator+=(const Tally& other) {
    graphs += other.graphs;
    bytes += other.bytes;
    changedAccepted += other.changedAccepted;
    changedRefused += other.changedRefused;
    return *this;
  }
};

using Bytes = std::vector<std::uint8_t>;

Bytes encode(const std::shared_ptr<NSObject>& object) {
  WireWriter writer;
  encodeObject(writer, object);
  return {writer.bytes().begin(), writer.bytes().end()};
}

struct Decoded {
  DecodeResult result;
  std::size_t taken = 0;
};

Decoded decode(const Bytes& bytes) {
  WireReader reader(bytes);
  Decoded decoded{decodeObject(reader, kEverything, kEverything)};
  decoded.taken = bytes.size() - reader.remaining();
  return decoded;
}

bool areEqual(const std::shared_ptr<NSObject>& one, const std::shared_ptr<NSObject>& other) {
  if (one == nullptr || other == nullptr) return one == other;
  return &one->isa() == &other->isa() && one->isEqual(other) && other->isEqual(one);
}

class Worker {
 public:
  Worker(std::uint64_t seed, stress::Findings& findings)
      : seed_(seed), objects_(seed), random_(~seed), findings_(findings) {}

  void run(std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) oneGraph();
  }
  [[nodiscard]] const Tally& tally() const { return tally_; }

 private:
  void oneGraph() {
    const auto graph = objects_.graph();
    const Bytes bytes = encode(graph);
    const Decoded decoded = decode(bytes);
    require(decoded.result.verdict == DecodeVerdict::Accepted, "what was encoded is not accepted");
    require(decoded.taken == bytes.size(), "bytes are left over");
    require(areEqual(graph, decoded.result.object), "what comes back is not equal");
    require(encode(decoded.result.object) == bytes, "what comes back encodes differently");
    ++tally_.graphs;
    tally_.bytes += bytes.size();
    oneChange(bytes);
  }
  /// Changes the bytes in one place: a flipped bit, another value, or a duplicated piece.
  void oneChange(Bytes bytes) {
    const std::size_t at = random_() % bytes.size();
    switch (random_() % 3) {
      case 0:
        bytes[at] ^= static_cast<std::uint8_t>(1U << (random_() % 8));
        break;
      case 1:
        bytes[at] = static_cast<std::uint8_t>(random_() % 32);
        break;
      default: {
        const std::size_t length = std::min<std::size_t>(1 + random_() % 32, bytes.size() - at);
        const Bytes piece(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                          bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), piece.begin(), piece.end());
      }
    }
    const Decoded decoded = decode(bytes);
    if (decoded.result.verdict != DecodeVerdict::Accepted) {
      require(decoded.result.object == nullptr, "a refusal leaves an object behind");
      ++tally_.changedRefused;
      return;
    }
    bytes.resize(decoded.taken);
    require(encode(decoded.result.object) == bytes, "what is accepted encodes differently");
    ++tally_.changedAccepted;
  }
  void require(bool condition, const char* why) {
    if (!condition)
      findings_.demand(false, std::string(why) + " (graph " + std::to_string(tally_.graphs) +
                                  " of seed " + std::to_string(seed_) + ")");
  }

  const std::uint64_t seed_;
  stress::RandomObjects objects_;
  std::mt19937_64 random_;
  stress::Findings& findings_;
  Tally tally_;
};

void roundTrips(const stress::Work& work, stress::Findings& findings) {
  const std::uint64_t count = work.times(10'000'000, 200'000);
  const std::uint64_t workers = std::clamp(std::thread::hardware_concurrency(), 1U, 8U);
  std::vector<Worker> all;
  for (std::uint64_t i = 0; i < workers; ++i) all.emplace_back(kSeed + i, findings);
  {
    std::vector<std::jthread> threads;
    for (std::uint64_t i = 0; i < workers; ++i) {
      const std::uint64_t share = count / workers + (i < count % workers ? 1 : 0);
      threads.emplace_back([&worker = all[i], share] { worker.run(share); });
    }
  }
  Tally tally;
  for (const Worker& worker : all) tally += worker.tally();
  findings.figure("round trips, random object graphs that came back equal", tally.graphs);
  findings.figure("round trips, first seed and number of seeds",
                  std::to_string(kSeed) + ", " + std::to_string(workers));
  findings.figure("round trips, bytes", tally.bytes);
  findings.figure("round trips, changed copies accepted (and the same when encoded again)",
                  tally.changedAccepted);
  findings.figure("round trips, changed copies refused", tally.changedRefused);
  findings.demandEqual("random object graphs", tally.graphs, count);
  findings.demand(tally.changedAccepted > count / 20 && tally.changedRefused > count / 20,
                  "changed copies of both kinds, accepted and refused");
}

}  // namespace

int main(int argc, char** argv) {
  return stress::run(argc, argv, roundTrips);
}
