// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/RememberedTree.h"

#include <utility>

namespace router {

template <class Answer, class Ask>
Answer RememberedTree::remembered(Answers<Answer>& answers, Question question,
                                  const Ask& ask) const {
  {
    const std::lock_guard lock(mutex_);
    const auto known = answers.find(question);
    if (known != answers.end()) return known->second;
  }
  Answer answer = ask();
  const std::lock_guard lock(mutex_);
  return answers.try_emplace(std::move(question), std::move(answer)).first->second;
}

std::vector<SystemDevice> RememberedTree::initialized(const std::string& subsystem) const {
  return remembered(initialized_, {subsystem}, [&] { return tree_->initialized(subsystem); });
}

std::vector<SystemDevice> RememberedTree::below(const std::string& path,
                                                const std::string& subsystem) const {
  return remembered(below_, {path, subsystem}, [&] { return tree_->below(path, subsystem); });
}

std::optional<SystemDevice> RememberedTree::parentOf(const std::string& path) const {
  return remembered(parents_, {path}, [&] { return tree_->parentOf(path); });
}

std::optional<SystemDevice> RememberedTree::ancestorOf(const std::string& path,
                                                       const std::string& subsystem,
                                                       const std::string& type) const {
  return remembered(ancestors_, {path, subsystem, type},
                    [&] { return tree_->ancestorOf(path, subsystem, type); });
}

std::optional<SystemDevice> RememberedTree::withNumber(dev_t number) const {
  return tree_->withNumber(number);
}

std::optional<std::string> RememberedTree::attribute(const std::string& path,
                                                     const std::string& name) const {
  return remembered(attributes_, {path, name}, [&] { return tree_->attribute(path, name); });
}

std::optional<std::vector<std::uint8_t>> RememberedTree::reportDescriptor(
    const std::string& path) const {
  return remembered(descriptors_, {path}, [&] { return tree_->reportDescriptor(path); });
}

std::unique_ptr<DeviceWatch> RememberedTree::watch() const {
  return tree_->watch();
}

}  // namespace router
