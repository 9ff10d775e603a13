#include "network/class.h"

namespace kelva {

Class::Class(ClassCollection& collection, std::string name, Domain* body) noexcept
    : Object(ObjectTag::class_), collection_(&collection), name_(std::move(name)), body_(body) {
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
  forget_sources();
  while (!members_.empty()) destroy(*members_[members_.size() - 1]);
  drop_context(peers_);
}

Class* ClassCollection::find(const std::string& name) const noexcept {
  for (Class* c : members_)
    if (c->name() == name) return c;
  return nullptr;
}

Class& ClassCollection::add(std::string name) {
  auto body = std::make_unique<Domain>();
  Class& cls = adopt(std::move(name), *body);
  body.release();
  return cls;
}

Class& ClassCollection::adopt(std::string name, Domain& body) {
  members_.reserve_more(1);
  bodies_.reserve_more(1);
  auto* cls = new Class(*this, std::move(name), &body);
  members_.push_back(cls);
  bodies_.push_back(&body);
  return *cls;
}

void ClassCollection::take_classes(ClassCollection& other) {
  members_.reserve_more(other.members_.size());
  bodies_.reserve_more(other.members_.size());
  // Unfolded domains stay registered with `other`: their source lists go.
  other.forget_sources();
  for (Class* c : other.members_) {
    c->collection_ = this;
    members_.push_back(c);
    bodies_.push_back(&c->body());
  }
  other.members_.clear();
  other.bodies_.clear();
}

void ClassCollection::add_unfolded(Domain& domain) {
  unfolded_.insert(&domain);
  domain.unfolded_from = this;
}

void ClassCollection::remove_unfolded(Domain& domain) noexcept {
  unfolded_.erase(&domain);
  domain.unfolded_from = nullptr;
}

void ClassCollection::forget_sources() noexcept {
  for (Domain* d : unfolded_) {
    for (Node* n = d->first_node(); n != nullptr; n = n->next) n->source.clear();
    d->unfolded_from = nullptr;
  }
  unfolded_.clear();
}

void ClassCollection::destroy(Class& cls) noexcept {
  members_.remove(&cls);
  bodies_.remove(&cls.body());
  delete &cls;
}

}  // namespace kelva
