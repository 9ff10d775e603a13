#include "network/class.h"

namespace kelva {

Class::Class(ClassCollection& collection, std::string name)
    : Object(ObjectTag::class_),
      collection_(&collection),
      name_(std::move(name)),
      body_(std::make_unique<Domain>()) {
  body_->owner_class = this;
}

Class::~Class() {
  // The body's instance nodes and clones go with it; the classes they
  // instantiate forget them first.
  for (Node* n = body_->first_node(); n != nullptr; n = n->next)
    if (n->instance_data != nullptr && n->instance_data->of != nullptr)
      n->instance_data->of->instances.remove(n);
}

ClassCollection::ClassCollection() : Object(ObjectTag::class_collection) {}

ClassCollection::~ClassCollection() {
  // Every class goes, so instances forget their classes first: a class
  // destroyed earlier must not be reached from a later one's instances.
  for (Class* c : members_) {
    c->instances.clear();
    for (Node* n = c->body().first_node(); n != nullptr; n = n->next)
      if (n->instance_data != nullptr) n->instance_data->of = nullptr;
  }
  while (!members_.empty()) destroy(*members_[members_.size() - 1]);
  drop_context(peers_);
}

Class* ClassCollection::find(const std::string& name) const noexcept {
  for (Class* c : members_)
    if (c->name() == name) return c;
  return nullptr;
}

Class& ClassCollection::add(std::string name) {
  members_.reserve_more(1);
  bodies_.reserve_more(1);
  auto cls = std::make_unique<Class>(*this, std::move(name));
  members_.push_back(cls.get());
  bodies_.push_back(&cls->body());
  return *cls.release();
}

void ClassCollection::destroy(Class& cls) noexcept {
  members_.remove(&cls);
  bodies_.remove(&cls.body());
  delete &cls;
}

}  // namespace kelva
