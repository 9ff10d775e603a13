#pragma once

#include <cstdint>

namespace kelva {

/// What an engine object is.  Every object handed out through the C API
/// carries its tag, checked on entry, so a handle of the wrong sort gives
/// "usage" rather than a crash.  Destruction poisons the tag.
enum class ObjectTag : std::uint32_t {
  dead = 0xDEADBEEF,
  domain = 0x4B444D4E,
  node = 0x4B4E4F44,
  table = 0x4B544142,
  attribute = 0x4B415454,
  expression = 0x4B455850,
  model = 0x4B4D4F44,
  junction_tree = 0x4B4A5452,
  clique = 0x4B434C51,
  data_set = 0x4B445354,
  class_ = 0x4B434C53,
  class_collection = 0x4B434343,
  ambiguous_region = 0x4B415247,
  solution = 0x4B534F4C,
  uncertain_edge = 0x4B554E45,
};

/// Base of every engine object that crosses the C boundary.
class Object {
 public:
  ObjectTag tag() const noexcept { return tag_; }
  /// True when this object is alive and of sort `tag`.
  bool is(ObjectTag tag) const noexcept { return tag_ == tag; }

 protected:
  explicit Object(ObjectTag tag) noexcept : tag_(tag) {}
  ~Object() { tag_ = ObjectTag::dead; }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

 private:
  volatile ObjectTag tag_;
};

}  // namespace kelva
