// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSArray.h"

namespace platform {
namespace {

using Objects = std::vector<std::shared_ptr<NSObject>>;

Objects withoutNull(Objects objects) {
  for (const auto& object : objects) {
    if (!object) throw std::invalid_argument("an array cannot hold null");
  }
  return objects;
}

void checkIndex(std::size_t index, std::size_t count) {
  if (index < count) return;
  throw NSRangeException("index " + std::to_string(index) + " beyond an array of " +
                         std::to_string(count));
}

class ConcreteArray final : public NSArray {
 public:
  explicit ConcreteArray(Objects objects) : objects_(std::move(objects)) {}
  std::size_t count() const override { return objects_.size(); }
  std::shared_ptr<NSObject> objectAtIndex(std::size_t index) const override {
    checkIndex(index, objects_.size());
    return objects_[index];
  }

 private:
  const Objects objects_;
};

class ConcreteMutableArray final : public NSMutableArray {
 public:
  explicit ConcreteMutableArray(Objects objects) : objects_(std::move(objects)) {}
  std::size_t count() const override { return objects_.size(); }
  std::shared_ptr<NSObject> objectAtIndex(std::size_t index) const override {
    checkIndex(index, objects_.size());
    return objects_[index];
  }
  void addObject(const std::shared_ptr<NSObject>& object) override {
    if (!object) throw std::invalid_argument("an array cannot hold null");
    objects_.push_back(object);
    ++mutations_;
  }
  void removeObjectAtIndex(std::size_t index) override {
    checkIndex(index, objects_.size());
    // Held until the end: its destructor may access this array, which is consistent again by then.
    const auto removed = std::move(objects_[index]);
    objects_.erase(objects_.begin() + static_cast<std::ptrdiff_t>(index));
    ++mutations_;
  }

 protected:
  std::size_t mutations() const override { return mutations_; }

 private:
  Objects objects_;
  std::size_t mutations_ = 0;
};

}  // namespace

const NSClass& NSArray::classObject() {
  static const NSClass object{"NSArray", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSArray> NSArray::arrayWithObjects(Objects objects) {
  return std::make_shared<ConcreteArray>(withoutNull(std::move(objects)));
}

void NSArray::enumerateObjects(
    const std::function<void(const std::shared_ptr<NSObject>&)>& body) const {
  const std::size_t before = mutations();
  for (std::size_t i = 0; i < count(); ++i) {
    body(objectAtIndex(i));
    if (mutations() != before) {
      throw NSGenericException("the array was changed during enumeration");
    }
  }
}

std::strong_ordering NSArray::compareValue(const NSObject& other) const {
  const auto& array = static_cast<const NSArray&>(other);
  if (count() != array.count()) return count() <=> array.count();
  for (std::size_t i = 0; i < count(); ++i) {
    const auto order = compare(objectAtIndex(i).get(), array.objectAtIndex(i).get());
    if (order != 0) return order;
  }
  return std::strong_ordering::equal;
}

std::string NSArray::description() const {
  return descriptionWithIndent(0);
}

std::string NSArray::descriptionWithIndent(std::size_t indent) const {
  const std::string outer(indent * 4, ' ');
  std::string text = outer + "(\n";
  for (std::size_t i = 0; i < count(); ++i) {
    text += outer + "    " + objectAtIndex(i)->descriptionWithIndent(indent + 1);
    text += i + 1 < count() ? ",\n" : "\n";
  }
  return text + outer + ")";
}

const NSClass& NSMutableArray::classObject() {
  static const NSClass object{"NSMutableArray", &NSArray::classObject()};
  return object;
}

std::shared_ptr<NSMutableArray> NSMutableArray::array() {
  return arrayWithObjects({});
}

std::shared_ptr<NSMutableArray> NSMutableArray::arrayWithObjects(Objects objects) {
  return std::make_shared<ConcreteMutableArray>(withoutNull(std::move(objects)));
}

}  // namespace platform
