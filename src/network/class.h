#pragma once

#include <memory>
#include <string>
#include <unordered_set>
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
  /// A class whose body is `body`, an ordinary domain until now (owned
  /// from here on).
  Class(ClassCollection& collection, std::string name, Domain* body) noexcept;
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
  friend class ClassCollection;
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
  /// Makes a class of `body`, owned from here on only when this succeeds;
  /// the caller has checked the name and body.
  Class& adopt(std::string name, Domain& body);
  /// Moves every class of `other` (names checked by the caller) here.
  void take_classes(ClassCollection& other);
  /// Destroys `cls`, which no other class instantiates any more.
  void destroy(Class& cls) noexcept;

  /// Java bookkeeping: the "insertClass" call-back's frame and the peer.
  PeerContext& peers() noexcept { return peers_; }

  /// Domains unfolded from these classes whose nodes hold source lists.
  void add_unfolded(Domain& domain);
  void remove_unfolded(Domain& domain) noexcept;
  /// Empties the source lists of those domains and forgets them: a node
  /// they name is about to go.
  void forget_sources() noexcept;

 private:
  PtrList<Class> members_;
  PtrList<Domain> bodies_;
  PeerContext peers_;
  std::unordered_set<Domain*> unfolded_;
};

/// The class whose body `domain` is, or null for an ordinary domain.
inline Class* class_of(const Domain& domain) noexcept { return domain.owner_class; }

}  // namespace kelva
