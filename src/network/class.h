#pragma once

#include <memory>
#include <string>
#include <vector>

#include "network/domain.h"
#include "network/node.h"
#include "network/node_list.h"
#include "network/object.h"
#include "network/peer.h"

namespace kelva {

class ClassCollection;

/// A class of an object-oriented network: a network (its body, a domain
/// whose node names are single identifiers) with an interface of input and
/// output nodes.  Instances of it are nodes of other classes.
class Class : public Object {
 public:
  Class(ClassCollection& collection, std::string name);
  ~Class();

  Domain& body() noexcept { return *body_; }
  const Domain& body() const noexcept { return *body_; }
  ClassCollection& collection() const noexcept { return *collection_; }
  const std::string& name() const noexcept { return name_; }
  void set_name(std::string name) noexcept { name_ = std::move(name); }

  /// Input nodes: placeholders that an instance binds to nodes of the
  /// enclosing class.  Output nodes: seen outside through output clones.
  NodeList inputs;
  NodeList outputs;
  /// The instance nodes of this class (in other classes), oldest first.
  NodeList instances;
  void* backpointer = nullptr;

 private:
  ClassCollection* collection_;
  std::string name_;
  std::unique_ptr<Domain> body_;
};

/// What an instance node holds: the class it instantiates, the bindings of
/// that class's inputs to nodes of the enclosing class, and one output clone
/// per output of the class.
struct InstanceData {
  struct Binding {
    Node* input;   // an input node of `of`
    Node* actual;  // a node of the enclosing class
  };
  struct Clone {
    Node* output;  // an output node of `of`
    Node* clone;   // its stand-in in the enclosing class
  };
  Class* of = nullptr;
  std::vector<Binding> bindings;
  std::vector<Clone> clones;

  Node* actual_of(const Node* input) const noexcept {
    for (const Binding& b : bindings)
      if (b.input == input) return b.actual;
    return nullptr;
  }
  Node* clone_of(const Node* output) const noexcept {
    for (const Clone& c : clones)
      if (c.output == output) return c.clone;
    return nullptr;
  }
};

/// The owner of a set of classes with distinct names, in creation order.
class ClassCollection : public Object {
 public:
  ClassCollection();
  ~ClassCollection();

  /// The classes, oldest first, as a null-ended list.
  const PtrList<Class>& members() const noexcept { return members_; }
  /// Their bodies in the same order (class handles are body addresses).
  const PtrList<Domain>& bodies() const noexcept { return bodies_; }
  Class* find(const std::string& name) const noexcept;
  /// Makes an empty class; the caller has checked the name.
  Class& add(std::string name);
  /// Destroys `cls`, which no other class instantiates any more.
  void destroy(Class& cls) noexcept;

  /// Java bookkeeping: the "insertClass" call-back's frame and the peer.
  PeerContext& peers() noexcept { return peers_; }

 private:
  PtrList<Class> members_;
  PtrList<Domain> bodies_;
  PeerContext peers_;
};

/// The class whose body `domain` is, or null for an ordinary domain.
inline Class* class_of(const Domain& domain) noexcept { return domain.owner_class; }

}  // namespace kelva
