// SPDX-License-Identifier: Apache-2.0

// A tree of devices as it was when it was asked first: each question goes to the computer once.
//
// Classifying one device means looking at its neighbours, and so at each of them for every device
// of a listing. A listing looks at one of these instead, and drops it.
//
// Threading: any thread. No lock is held while the computer is asked.
// Ownership: holds the tree that it asks.
// Errors, Order: that tree's. A question that failed is asked again.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "router/hidraw/DeviceTree.h"

namespace router {

class RememberedTree final : public DeviceTree {
 public:
  explicit RememberedTree(std::shared_ptr<const DeviceTree> tree) : tree_(std::move(tree)) {}

  [[nodiscard]] std::vector<SystemDevice> initialized(const std::string& subsystem) const override;
  [[nodiscard]] std::vector<SystemDevice> below(const std::string& path,
                                                const std::string& subsystem) const override;
  [[nodiscard]] std::optional<SystemDevice> parentOf(const std::string& path) const override;
  [[nodiscard]] std::optional<SystemDevice> ancestorOf(const std::string& path,
                                                       const std::string& subsystem,
                                                       const std::string& type) const override;
  /// Not remembered: whoever asks is about to open the node.
  [[nodiscard]] std::optional<SystemDevice> withNumber(dev_t number) const override;
  [[nodiscard]] std::optional<std::string> attribute(const std::string& path,
                                                     const std::string& name) const override;
  [[nodiscard]] std::optional<std::vector<std::uint8_t>> reportDescriptor(
      const std::string& path) const override;
  [[nodiscard]] std::unique_ptr<DeviceWatch> watch() const override;

 private:
  using Question = std::vector<std::string>;  // the arguments
  template <class Answer>
  using Answers = std::map<Question, Answer>;
  template <class Answer, class Ask>
  Answer remembered(Answers<Answer>& answers, Question question, const Ask& ask) const;

  const std::shared_ptr<const DeviceTree> tree_;
  mutable std::mutex mutex_;
  mutable Answers<std::vector<SystemDevice>> initialized_;
  mutable Answers<std::vector<SystemDevice>> below_;
  mutable Answers<std::optional<SystemDevice>> parents_;
  mutable Answers<std::optional<SystemDevice>> ancestors_;
  mutable Answers<std::optional<std::string>> attributes_;
  mutable Answers<std::optional<std::vector<std::uint8_t>>> descriptors_;
};

}  // namespace router
