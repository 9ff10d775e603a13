#pragma once

#include <memory>
#include <string>

#include "network/object.h"

namespace kelva {

/// One (key, value) entry of an attribute list.
class Attribute : public Object {
 public:
  Attribute(std::string key, std::string value)
      : Object(ObjectTag::attribute), key(std::move(key)), value(std::move(value)) {}
  std::string key;
  std::string value;
  std::unique_ptr<Attribute> next;
};

/// The attributes of a domain or node: a singly linked list, newest first.
class AttributeList {
 public:
  AttributeList() = default;
  ~AttributeList();
  AttributeList(const AttributeList&) = delete;
  AttributeList& operator=(const AttributeList&) = delete;

  /// Sets `key` to `value`; a null value removes the key.  The key must
  /// already have been checked.  A new key goes to the head.
  void set(const std::string& key, const char* value);
  /// The value of `key`, or null.
  const char* get(const std::string& key) const noexcept;
  Attribute* first() const noexcept { return head_.get(); }

 private:
  std::unique_ptr<Attribute> head_;
};

}  // namespace kelva
