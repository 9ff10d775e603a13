#pragma once

#include <functional>
#include <memory>

#include "network/class.h"

namespace kelva {

// Edits of object-oriented networks: classes, instance nodes, input and
// output lists, bindings.  Each keeps every instance consistent with its
// class (a binding per bound input, a clone per output) and throws
// kelva::Error leaving things as they were when refused.

/// Drops the model of `child` when it refers to `gone`.  The expression layer
/// registers it from the model constructor (no model, nothing to drop).
inline void (*drop_model_referring)(Node& child, const Node& gone) noexcept = nullptr;
/// Gives `to` a copy of the model of `from`, its nodes and the nodes its
/// expressions name mapped through `map`.  Registered by the expression
/// layer like drop_model_referring (no model was ever made: nothing to copy).
inline void (*copy_model_into)(const Node& from, Node& to,
                               const std::function<Node&(Node&)>& map) = nullptr;

/// A new empty class: "invalid_name" for a name that is not one identifier,
/// "twice" when the collection has a class of that name.
Class& new_class(ClassCollection& collection, const char* name);
/// Makes the ordinary domain `domain` (owned by the caller until now) a
/// class named `name` under the same rules: Error(usage) when a node name
/// holds a dot, or the domain has chain-graph components; uncompiles it.
Class& add_domain_as_class(ClassCollection& collection, Domain& domain, const char* name);
/// Moves every class of `other` into `collection` (`other` is left empty):
/// "twice" when a name is in both, and nothing moves.
void add_classes(ClassCollection& collection, ClassCollection& other);
/// Renames a class under the same rules.
void rename_class(Class& cls, const char* name);
/// Deletes a class and every instance of it in other classes.
void delete_class(Class& cls);

/// Whether `outer` is `inner` or holds an instance of it, at any depth.
bool instantiates(const Class& outer, const Class& inner) noexcept;
/// A new instance node of `of` in `home`, with an output clone per output:
/// "cyclic_instance_hierarchy" when `of` is `home` or instantiates it.
Node& new_instance(Class& home, Class& of);
/// Makes `instance` instantiate `of`: bindings and clones are kept for inputs
/// and outputs of the same name and compatible states, the others dropped
/// (clones with their links); new outputs get clones.
void substitute_class(Node& instance, Class& of);

/// Binds input node `input` of the instance's class to `actual`, a node of
/// the enclosing class with the same kind and number of states.
void set_input(Node& instance, Node& input, Node& actual);
void unset_input(Node& instance, Node& input);

/// Input lists: a discrete or continuous chance or decision node without
/// parents that is not an output.  Output lists: a node of the class that is
/// neither an instance, an output clone nor an input.  Adding an output gives
/// every instance a clone; removing one deletes the clones; removing an input
/// drops its bindings.
void add_to_inputs(Node& node);
void remove_from_inputs(Node& node);
void add_to_outputs(Node& node);
void remove_from_outputs(Node& node);

/// Whether `node` may take parents: not an output clone nor an input node.
bool takes_parents(const Node& node) noexcept;
/// Whether the number of states of `node` must not change: an output clone,
/// an input or output of a class with instances, or a bound actual node.
bool states_tied_by_classes(const Node& node) noexcept;
/// The class bookkeeping of a node about to be deleted: its clones (for an
/// instance), its place in input and output lists and the bindings naming it.
void release_class_ties(Node& node);

/// A new ordinary domain holding `cls` unfolded: nodes of instances named
/// `instance.node` at every depth, bound inputs replaced by their actual
/// nodes, unbound inputs kept with their own tables.
/// Its nodes get source lists (Node::source) and the domain is registered
/// with the class's collection so that deleting class nodes empties them.
std::unique_ptr<Domain> create_domain(Class& cls);

/// A deep copy of an ordinary domain: nodes (names, labels, positions,
/// attributes, states), links, tables, experience and fading tables,
/// models, node size and attributes; not evidence, cases nor the forest.
/// Error(usage) for a class body or a domain with chain-graph components.
std::unique_ptr<Domain> clone_domain(Domain& domain);
/// A new node of the same domain holding what `node` holds (but no name
/// and no children): the same parents, tables and model.  Error(usage) for
/// an instance node, an output clone or a member of a chain-graph component.
Node& clone_node(Node& node);

}  // namespace kelva
