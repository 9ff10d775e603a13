#include "network/attributes.h"

namespace kelva {

AttributeList::~AttributeList() {
  // Unlink iteratively: a recursive chain of destructors could exhaust the
  // stack on a very long list.
  while (head_) head_ = std::move(head_->next);
}

void AttributeList::set(const std::string& key, const char* value) {
  std::unique_ptr<Attribute>* link = &head_;
  while (*link && (*link)->key != key) link = &(*link)->next;
  if (value == nullptr) {
    if (*link) *link = std::move((*link)->next);
    return;
  }
  if (*link) {
    (*link)->value = value;
    return;
  }
  auto entry = std::make_unique<Attribute>(key, value);
  entry->next = std::move(head_);
  head_ = std::move(entry);
}

const char* AttributeList::get(const std::string& key) const noexcept {
  for (const Attribute* a = head_.get(); a != nullptr; a = a->next.get())
    if (a->key == key) return a->value.c_str();
  return nullptr;
}

}  // namespace kelva
