#pragma once

#include <cstdint>
#include <vector>

#include "kelva/kelva.h"
#include "network/node_list.h"
#include "network/object.h"
#include "network/peer.h"

namespace kelva {

class Expression;
class Node;

/// Describes a node's table by expressions: one slot per configuration of
/// the model nodes (a subset of the owner's discrete parents), in
/// configuration order (last model node fastest).  Owned by its node.  The
/// needs-generation flag lives on the owner (Node::needs_generation).
class Model : public Object {
 public:
  /// A model of `owner` over `model_nodes`, all slots empty.  The caller has
  /// checked the nodes.
  Model(Node& owner, const std::vector<Node*>& model_nodes);
  ~Model();

  Node& owner() const noexcept { return *owner_; }
  const NodeList& nodes() const noexcept { return nodes_; }
  /// Number of configurations of the model nodes (1 without model nodes).
  std::uint64_t size() const noexcept { return size_; }
  /// The expression of slot `index` (null when empty or never set).
  Expression* expression(std::uint64_t index) const noexcept;
  /// Whether any slot was ever set (the slot array exists).
  bool has_slots() const noexcept { return !slots_.empty(); }
  /// Stores `e` (null clears) in slot `index`, holding it and letting go of
  /// the previous one.  Checks are the caller's.
  void set_expression(std::uint64_t index, Expression* e);

  /// The slots after model node `node` changes its states: new state t
  /// takes the expressions of old state new_to_old[t] (an index not below
  /// `old_count` makes empty slots).  Nothing changes until the result is
  /// given to commit_slots(); throws on allocation failure.
  std::vector<Expression*> reshaped_slots(const Node& node, std::size_t old_count,
                                          const std::vector<std::size_t>& new_to_old) const;
  /// Puts in place slots made by reshaped_slots(), letting go of the
  /// expressions that no new slot keeps, and recomputes the size.
  void commit_slots(std::vector<Expression*> slots) noexcept;

  std::uint64_t samples_per_interval = 25;
  void* backpointer = nullptr;
  PeerRef peer = nullptr;  // "modelPeer"

 private:
  Node* owner_;
  NodeList nodes_;
  std::uint64_t size_ = 1;
  std::vector<Expression*> slots_;  // allocated on the first setting
};

/// Whether `model` refers to `node`: as a model node or in an expression.
bool model_refers_to(const Model& model, const Node& node) noexcept;

/// Error(usage) unless `owner` can have a model: instance nodes and
/// continuous nodes cannot.
void verify_model_owner(const Node& owner);

/// Gives `owner` a new model over `model_nodes` (all slots empty) in place
/// of the one it had, and marks its table for generation.  Error(usage)
/// unless the owner can have a model and the model nodes are distinct
/// discrete parents of it, in its domain (checked in that order).
Model& new_model(Node& owner, const std::vector<Node*>& model_nodes);

/// Stores `e` (null clears) in slot `index` of `model` and marks the
/// owner's table for generation.  Error(usage) for an index out of range;
/// Error(invalid_expression) when `e` refers to a node that is not a parent
/// of the owner, has a type the owner cannot use, or holds an operator the
/// owner's category does not allow.  On failure `e` is left to the caller.
void set_model_expression(Model& model, std::uint64_t index, Expression* e);

/// Sets the number of samples per interval of `model` (Error(usage) for 0);
/// the owner's table needs generation again unless the owner is a
/// real-valued function node.
void set_samples_per_interval(Model& model, std::uint64_t count);

}  // namespace kelva
